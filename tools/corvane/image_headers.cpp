#include "tools/corvane/image_headers.h"

namespace corvane::tool {
namespace {

constexpr std::uint16_t kDosMagic = 0x5A4D;
constexpr std::uint32_t kImageMagic = 0x00004550;
constexpr std::uint16_t kMagic32 = 0x010B;
constexpr std::uint16_t kMagic64 = 0x020B;
constexpr std::size_t kSectionHeaderSize = 40;

} // namespace

ImageHeaders::ImageHeaders(ImageBytes file) : file_(file) {
    const std::size_t image = read_at<std::uint32_t>(file, 0x3C).value_or(0);
    is_image_ = read_at<std::uint16_t>(file, 0) == kDosMagic &&
                read_at<std::uint32_t>(file, image) == kImageMagic;
    if (!is_image_) {
        return;
    }
    machine_ = read_at<std::uint16_t>(file, image + 4).value_or(0);
    const auto section_count = read_at<std::uint16_t>(file, image + 6);
    const auto optional_size = read_at<std::uint16_t>(file, image + 20);
    const std::size_t optional_header = image + 24;
    const auto magic = read_at<std::uint16_t>(file, optional_header);
    directories_ = optional_header + (magic == kMagic64 ? 108 : 92);
    is_whole_ = section_count && optional_size && (magic == kMagic32 || magic == kMagic64) &&
                read_sections(optional_header + *optional_size, *section_count);
}

bool ImageHeaders::read_sections(std::size_t header, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i, header += kSectionHeaderSize) {
        const auto address = read_at<std::uint32_t>(file_, header + 12);
        const auto size = read_at<std::uint32_t>(file_, header + 16);
        const auto offset = read_at<std::uint32_t>(file_, header + 20);
        if (!address || !size || !offset) {
            return false;
        }
        sections_.push_back({*address, part_of(file_, *offset, *size)});
    }
    return true;
}

ImageHeaders::Directory ImageHeaders::directory(std::uint32_t number) const {
    if (number >= read_at<std::uint32_t>(file_, directories_).value_or(0)) {
        return {};
    }
    const std::size_t entry = directories_ + 4 + std::size_t{number} * 8;
    return {read_at<std::uint32_t>(file_, entry).value_or(0),
            read_at<std::uint32_t>(file_, entry + 4).value_or(0)};
}

ImageBytes ImageHeaders::at(std::uint32_t address) const {
    for (const Section& section : sections_) {
        if (address >= section.address && address - section.address < section.bytes.size()) {
            return section.bytes.subspan(address - section.address);
        }
    }
    return {};
}

} // namespace corvane::tool
