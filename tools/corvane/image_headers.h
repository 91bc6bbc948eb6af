// The headers of a program, a DLL or an assembly, and what of its file stands where in its image.
// Nothing in the file is trusted: what a header says is looked at only where the file has it. Pure.
// Offsets are those of the image format (ECMA-335 II.25.2).
#pragma once

#include "il/byte_reader.h"

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace corvane::tool {

using ImageBytes = std::span<const std::uint8_t>;

template <std::integral T>
std::optional<T> read_at(ImageBytes bytes, std::uint64_t offset) {
    const auto begin = static_cast<std::size_t>(std::min<std::uint64_t>(offset, bytes.size()));
    return ByteReader(bytes.subspan(begin)).read<T>();
}

// As much of it as there is.
inline ImageBytes part_of(ImageBytes bytes, std::size_t offset, std::size_t size) {
    const ImageBytes rest = bytes.subspan(std::min(offset, bytes.size()));
    return rest.first(std::min(size, rest.size()));
}

class ImageHeaders {
public:
    struct Directory {
        std::uint32_t address = 0;
        std::uint32_t size = 0;
    };
    static constexpr std::uint32_t kExports = 0;
    static constexpr std::uint32_t kRuntime = 14; // of managed code

    // The file is borrowed.
    explicit ImageHeaders(ImageBytes file);

    // Whether the file begins as images do, and whether it has all of its headers.
    [[nodiscard]] bool is_image() const { return is_image_; }
    [[nodiscard]] bool is_whole() const { return is_whole_; }

    [[nodiscard]] std::uint16_t machine() const { return machine_; }

    // With the address 0 where there is none.
    [[nodiscard]] Directory directory(std::uint32_t number) const;

    // From an address of the image to the end of what the file has of its section. Empty for an
    // address in none.
    [[nodiscard]] ImageBytes at(std::uint32_t address) const;

private:
    struct Section {
        std::uint32_t address;
        ImageBytes bytes;
    };

    bool read_sections(std::size_t header, std::size_t count);

    ImageBytes file_;
    std::size_t directories_ = 0;
    std::vector<Section> sections_;
    std::uint16_t machine_ = 0;
    bool is_image_ = false;
    bool is_whole_ = false;
};

} // namespace corvane::tool
