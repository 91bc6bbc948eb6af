// The counterpart of ByteReader: appends little-endian integers, compressed integers and padding to
// a vector that the caller owns.
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace corvane {

class ByteWriter {
public:
    explicit ByteWriter(std::vector<std::uint8_t>& bytes) : bytes_(bytes) {}

    template <std::integral T>
    void write(T value) {
        write_low_bytes(static_cast<std::uint64_t>(value), sizeof(T));
    }

    // The lowest `count` bytes of a value, eight at most.
    void write_low_bytes(std::uint64_t value, std::size_t count) {
        static_assert(std::endian::native == std::endian::little);
        const std::size_t at = bytes_.size();
        bytes_.resize(at + count);
        std::memcpy(bytes_.data() + at, &value, count);
    }

    void write(std::span<const std::uint8_t> bytes) {
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    }

    // A compressed unsigned integer below 0x20000000 (ECMA-335 II.23.2), in its shortest form.
    void write_compressed(std::uint32_t value) {
        write_compressed(value, value < 0x80 ? 1 : value < 0x4000 ? 2 : 4);
    }

    // The same in a form of one, two or four bytes that is long enough.
    void write_compressed(std::uint32_t value, int length) {
        const std::uint32_t mark = length == 1 ? 0u : length == 2 ? 0x8000u : 0xC0000000u;
        for (int shift = 8 * (length - 1); shift >= 0; shift -= 8) {
            write(static_cast<std::uint8_t>((value | mark) >> shift));
        }
    }

    void align(std::size_t boundary) {
        bytes_.resize((bytes_.size() + boundary - 1) / boundary * boundary);
    }

private:
    std::vector<std::uint8_t>& bytes_;
};

} // namespace corvane
