// Offsets are those of the image format (ECMA-335 II.25.2 and 25.3).

#include "tools/corvane/offline/assembly_file.h"

#include "il/byte_reader.h"

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <optional>
#include <utility>

namespace corvane::tool {

namespace {

using Bytes = AssemblyFile::Bytes;

constexpr std::uint16_t kDosMagic = 0x5A4D;
constexpr std::uint32_t kImageMagic = 0x00004550;
constexpr std::uint16_t kMagic32 = 0x010B;
constexpr std::uint16_t kMagic64 = 0x020B;
constexpr std::uint32_t kMetadataMagic = 0x424A5342;
constexpr std::uint32_t kRuntimeDirectory = 14;
constexpr std::size_t kSectionHeaderSize = 40;

template <std::integral T>
std::optional<T> read_at(Bytes bytes, std::size_t offset) {
    return ByteReader(bytes.subspan(std::min(offset, bytes.size()))).read<T>();
}

Bytes part(Bytes bytes, std::size_t offset, std::size_t size) {
    const Bytes rest = bytes.subspan(std::min(offset, bytes.size()));
    return rest.first(std::min(size, rest.size()));
}

struct Directory {
    std::uint32_t address = 0;
    std::uint32_t size = 0;
};

Directory read_directory(Bytes bytes, std::size_t offset) {
    return {read_at<std::uint32_t>(bytes, offset).value_or(0),
            read_at<std::uint32_t>(bytes, offset + 4).value_or(0)};
}

} // namespace

AssemblyFile::AssemblyFile(std::vector<std::uint8_t> bytes)
    : bytes_(std::move(bytes)), verdict_(read()) {}

FileVerdict AssemblyFile::read() {
    const Bytes file = bytes_;
    if (read_at<std::uint16_t>(file, 0) != kDosMagic) {
        return FileVerdict::kNotManaged;
    }
    const std::size_t image = read_at<std::uint32_t>(file, 0x3C).value_or(0);
    if (read_at<std::uint32_t>(file, image) != kImageMagic) {
        return FileVerdict::kNotManaged;
    }
    const auto section_count = read_at<std::uint16_t>(file, image + 6);
    const auto optional_size = read_at<std::uint16_t>(file, image + 20);
    const std::size_t optional_header = image + 24;
    const auto magic = read_at<std::uint16_t>(file, optional_header);
    if (!section_count || !optional_size || (magic != kMagic32 && magic != kMagic64)) {
        return FileVerdict::kDamaged;
    }
    for (std::size_t i = 0; i < *section_count; ++i) {
        const std::size_t header = optional_header + *optional_size + i * kSectionHeaderSize;
        const auto address = read_at<std::uint32_t>(file, header + 12);
        const auto size = read_at<std::uint32_t>(file, header + 16);
        const auto offset = read_at<std::uint32_t>(file, header + 20);
        if (!address || !size || !offset) {
            return FileVerdict::kDamaged;
        }
        sections_.push_back({*address, part(file, *offset, *size)});
    }

    const std::size_t directories = optional_header + (magic == kMagic64 ? 108 : 92);
    if (read_at<std::uint32_t>(file, directories).value_or(0) <= kRuntimeDirectory) {
        return FileVerdict::kNotManaged;
    }
    const Directory runtime = read_directory(file, directories + 4 + kRuntimeDirectory * 8);
    if (runtime.address == 0) {
        return FileVerdict::kNotManaged;
    }
    const Directory metadata = read_directory(at(runtime.address), 8);
    const Bytes found = part(at(metadata.address), 0, metadata.size);
    if (metadata.size == 0 || found.size() != metadata.size ||
        read_at<std::uint32_t>(found, 0) != kMetadataMagic) {
        return FileVerdict::kDamaged;
    }
    metadata_ = found;
    return FileVerdict::kAssembly;
}

Bytes AssemblyFile::at(std::uint32_t address) const {
    for (const Section& section : sections_) {
        if (address >= section.address && address - section.address < section.bytes.size()) {
            return section.bytes.subspan(address - section.address);
        }
    }
    return {};
}

} // namespace corvane::tool
