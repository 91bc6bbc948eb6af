#include "tools/corvane/image_file.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <type_traits>

namespace corvane::tool {
namespace {

// The flags in the header of managed code.
constexpr std::uint32_t kOnlyIl = 0x1;
constexpr std::uint32_t kRequires32Bit = 0x2;
constexpr std::uint32_t kPrefers32Bit = 0x20000;

// What marks the place where a host for programs keeps the position of its bundle, eight bytes
// before. With all bits inverted, so that this tool is not taken for such a host.
constexpr std::uint8_t kInvertedMark[] = {
    0x74, 0xED, 0xFD, 0x46, 0x95, 0x9E, 0xDF, 0xC7, 0x8D, 0x84, 0x6C, 0xFD, 0xEB, 0x28, 0x5F, 0xCD,
    0xEC, 0x0A, 0x46, 0x19, 0x10, 0x51, 0xCC, 0xE7, 0x11, 0xC4, 0xD2, 0x31, 0xDB, 0x4C, 0x95, 0x51};

template <class T>
std::optional<T> read_at(std::string_view bytes, std::uint64_t at) {
    static_assert(std::is_integral_v<T>);
    if (at > bytes.size() || bytes.size() - at < sizeof(T)) {
        return std::nullopt;
    }
    T value{};
    std::memcpy(&value, bytes.data() + at, sizeof(T));
    return value;
}

std::string text_at(std::string_view bytes, std::uint64_t at) {
    if (at >= bytes.size()) {
        return {};
    }
    const std::string_view rest = bytes.substr(at, 512);
    return std::string(rest.substr(0, rest.find('\0')));
}

// The headers that lead to everything else.
struct Headers {
    std::string_view bytes;
    std::uint64_t directories = 0;
    std::uint32_t directory_count = 0;
    std::uint64_t sections = 0;
    std::uint16_t section_count = 0;

    // Where in the file the n-th directory lies.
    std::optional<std::uint64_t> directory(std::uint32_t number) const {
        const auto address =
            number < directory_count ? read_at<std::uint32_t>(bytes, directories + number * 8) : 0U;
        return address.value_or(0) == 0 ? std::nullopt : position_of(*address);
    }

    std::optional<std::uint64_t> position_of(std::uint32_t address) const {
        for (std::uint32_t i = 0; i < section_count; ++i) {
            const std::uint64_t section = sections + i * 40;
            const auto begin = read_at<std::uint32_t>(bytes, section + 12);
            const auto size = read_at<std::uint32_t>(bytes, section + 16);
            const auto position = read_at<std::uint32_t>(bytes, section + 20);
            if (begin && size && position && address >= *begin && address - *begin < *size) {
                return std::uint64_t{*position} + (address - *begin);
            }
        }
        return std::nullopt;
    }
};

std::set<std::string> read_exports(const Headers& headers) {
    constexpr std::uint32_t kMost = 65'536;
    std::set<std::string> names;
    const auto directory = headers.directory(0);
    if (!directory) {
        return names;
    }
    const auto count = read_at<std::uint32_t>(headers.bytes, *directory + 24);
    const auto address = read_at<std::uint32_t>(headers.bytes, *directory + 32);
    const auto list = address ? headers.position_of(*address) : std::nullopt;
    for (std::uint32_t i = 0; list && i < std::min(count.value_or(0), kMost); ++i) {
        const auto name = read_at<std::uint32_t>(headers.bytes, *list + i * 4);
        const auto text = name ? headers.position_of(*name) : std::nullopt;
        if (!text) {
            break;
        }
        names.insert(text_at(headers.bytes, *text));
    }
    return names;
}

// Reads the parts of a bundle's list one behind the other.
class BundleReader {
public:
    BundleReader(std::string_view bytes, std::uint64_t at) : bytes_(bytes), at_(at) {}

    template <class T>
    T read() {
        const auto value = read_at<T>(bytes_, at_);
        failed_ = failed_ || !value;
        at_ += sizeof(T);
        return value.value_or(0);
    }

    // With its length in front, seven bits in each byte.
    std::string read_text() {
        std::uint32_t length = 0;
        for (unsigned shift = 0; shift < 21; shift += 7) {
            const auto part = read<std::uint8_t>();
            length |= (part & 0x7Fu) << shift;
            if ((part & 0x80) == 0) {
                break;
            }
        }
        failed_ = failed_ || at_ > bytes_.size() || length > bytes_.size() - at_;
        if (failed_) {
            return {};
        }
        at_ += length;
        return std::string(bytes_.substr(at_ - length, length));
    }

    std::string slice(std::uint64_t at, std::uint64_t size) const {
        return at <= bytes_.size() && size <= bytes_.size() - at
                   ? std::string(bytes_.substr(at, size))
                   : std::string();
    }

    bool failed() const { return failed_; }

private:
    std::string_view bytes_;
    std::uint64_t at_;
    bool failed_ = false;
};

Bundle read_bundle(std::string_view bytes, std::uint64_t at) {
    Bundle bundle;
    BundleReader reader(bytes, at);
    const auto version = reader.read<std::uint32_t>();
    reader.read<std::uint32_t>(); // its minor part
    const auto count = reader.read<std::uint32_t>();
    reader.read_text(); // an id
    if (version < 2) {
        return bundle;
    }
    reader.read<std::uint64_t>(); // where the list of dependencies is, and its size
    reader.read<std::uint64_t>();
    const auto config = reader.read<std::uint64_t>();
    const auto config_size = reader.read<std::uint64_t>();
    reader.read<std::uint64_t>(); // flags
    bundle.runtime_config = reader.slice(config, config_size);
    for (std::uint32_t i = 0; i < count && !reader.failed(); ++i) {
        reader.read<std::uint64_t>(); // where it is, and its size
        reader.read<std::uint64_t>();
        if (version >= 6) {
            reader.read<std::uint64_t>(); // compressed
        }
        reader.read<std::uint8_t>(); // its kind
        bundle.files.push_back(reader.read_text());
    }
    return bundle;
}

void read_app_host(std::string_view bytes, Image& image) {
    std::string mark;
    for (const std::uint8_t byte : kInvertedMark) {
        mark += static_cast<char>(~byte);
    }
    const auto found = std::search(bytes.begin(), bytes.end(),
                                   std::boyer_moore_searcher(mark.begin(), mark.end()));
    if (found == bytes.end()) {
        return;
    }
    image.is_app_host = true;
    const auto at = static_cast<std::uint64_t>(found - bytes.begin());
    const auto bundle = at < 8 ? std::nullopt : read_at<std::uint64_t>(bytes, at - 8);
    if (bundle.value_or(0) != 0) {
        image.bundle = read_bundle(bytes, *bundle);
    }
}

} // namespace

std::optional<Image> read_image(std::string_view bytes) {
    const auto header = read_at<std::uint32_t>(bytes, 0x3C);
    if (!bytes.starts_with("MZ") || !header ||
        read_at<std::uint32_t>(bytes, *header) != 0x00004550U) {
        return std::nullopt;
    }
    const std::uint64_t file_header = std::uint64_t{*header} + 4;
    const std::uint64_t optional_header = file_header + 20;
    const auto machine = read_at<std::uint16_t>(bytes, file_header);
    const auto sections = read_at<std::uint16_t>(bytes, file_header + 2);
    const auto size = read_at<std::uint16_t>(bytes, file_header + 16);
    const auto kind = read_at<std::uint16_t>(bytes, optional_header);
    if (!machine || !sections || !size || !kind) {
        return std::nullopt;
    }
    const std::uint64_t directories = optional_header + (*kind == 0x20B ? 112 : 96);
    const Headers headers{bytes, directories,
                          read_at<std::uint32_t>(bytes, directories - 4).value_or(0),
                          optional_header + *size, *sections};
    Image image;
    image.machine = *machine;
    image.runs_as_32_bit = *machine == kMachineX86;
    if (const auto managed = headers.directory(14)) {
        image.is_managed = true;
        const auto flags = read_at<std::uint32_t>(bytes, *managed + 16).value_or(0);
        image.runs_as_32_bit =
            image.runs_as_32_bit &&
            ((flags & kOnlyIl) == 0 || (flags & (kRequires32Bit | kPrefers32Bit)) != 0);
    }
    image.exports = read_exports(headers);
    image.is_native_aot = image.exports.contains("DotNetRuntimeDebugHeader");
    if (!image.is_managed) {
        read_app_host(bytes, image);
        // A host that carries the runtime in its file has this export, too.
        image.is_native_aot = image.is_native_aot && !image.is_app_host;
    }
    return image;
}

} // namespace corvane::tool
