#include "tools/corvane/image_file.h"

#include "tools/corvane/image_headers.h"

#include <algorithm>
#include <functional>

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

std::string text_of(ImageBytes bytes) {
    const ImageBytes rest = bytes.first(std::min<std::size_t>(bytes.size(), 512));
    return {rest.begin(), std::ranges::find(rest, 0)};
}

std::set<std::string> read_exports(const ImageHeaders& headers) {
    constexpr std::uint32_t kMost = 65'536;
    std::set<std::string> names;
    const ImageBytes directory = headers.at(headers.directory(ImageHeaders::kExports).address);
    const auto count = read_at<std::uint32_t>(directory, 24);
    const ImageBytes list = headers.at(read_at<std::uint32_t>(directory, 32).value_or(0));
    for (std::uint32_t i = 0; i < std::min(count.value_or(0), kMost); ++i) {
        const ImageBytes text = headers.at(read_at<std::uint32_t>(list, i * 4).value_or(0));
        if (text.empty()) {
            break;
        }
        names.insert(text_of(text));
    }
    return names;
}

// Reads the parts of a bundle's list one behind the other.
class BundleReader {
public:
    BundleReader(ImageBytes bytes, std::uint64_t at) : bytes_(bytes), at_(at) {}

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
        return slice(at_ - length, length);
    }

    std::string slice(std::uint64_t at, std::uint64_t size) const {
        if (at > bytes_.size() || size > bytes_.size() - at) {
            return {};
        }
        const ImageBytes found = bytes_.subspan(at, size);
        return {found.begin(), found.end()};
    }

    bool failed() const { return failed_; }

private:
    ImageBytes bytes_;
    std::uint64_t at_;
    bool failed_ = false;
};

Bundle read_bundle(ImageBytes bytes, std::uint64_t at) {
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

void read_app_host(ImageBytes bytes, Image& image) {
    std::vector<std::uint8_t> mark;
    for (const std::uint8_t byte : kInvertedMark) {
        mark.push_back(static_cast<std::uint8_t>(~byte));
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

std::optional<Image> read_image(std::string_view text) {
    const ImageBytes bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    const ImageHeaders headers(bytes);
    if (!headers.is_whole()) {
        return std::nullopt;
    }
    Image image;
    image.machine = headers.machine();
    image.runs_as_32_bit = image.machine == kMachineX86;
    const ImageBytes runtime = headers.at(headers.directory(ImageHeaders::kRuntime).address);
    image.is_managed = !runtime.empty();
    if (image.is_managed) {
        const auto flags = read_at<std::uint32_t>(runtime, 16).value_or(0);
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
