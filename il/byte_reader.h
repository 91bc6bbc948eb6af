// The one bounded reader of all outside metadata and IL: signatures, bodies, sections. It compares
// a length with the remaining bytes, so no pointer past the end is ever formed. A failed read
// returns nothing and moves nothing. The reader owns no bytes; one thread uses a value.
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

namespace corvane {

class ByteReader {
public:
    explicit ByteReader(std::span<const std::uint8_t> bytes)
        : ByteReader(bytes.data(), bytes.data() + bytes.size()) {}
    ByteReader(const std::uint8_t* begin, const std::uint8_t* end)
        : begin_(begin), cursor_(begin), end_(end) {}

    [[nodiscard]] const std::uint8_t* cursor() const { return cursor_; }
    [[nodiscard]] std::size_t position() const {
        return static_cast<std::size_t>(cursor_ - begin_);
    }
    [[nodiscard]] std::size_t remaining() const { return static_cast<std::size_t>(end_ - cursor_); }

    [[nodiscard]] bool skip(std::size_t count) {
        if (count > remaining()) {
            return false;
        }
        cursor_ += count;
        return true;
    }

    // A little-endian integer.
    template <std::integral T>
    [[nodiscard]] std::optional<T> read() {
        static_assert(std::endian::native == std::endian::little);
        if (sizeof(T) > remaining()) {
            return std::nullopt;
        }
        T value{};
        std::memcpy(&value, cursor_, sizeof(T));
        cursor_ += sizeof(T);
        return value;
    }

    // A compressed unsigned integer (ECMA-335 II.23.2): 0xxxxxxx, 10xxxxxx and one byte more, or
    // 110xxxxx and three more, most significant byte first. An encoding longer than necessary is
    // accepted.
    [[nodiscard]] std::optional<std::uint32_t> read_compressed() {
        if (remaining() == 0 || *cursor_ >= 0xE0) {
            return std::nullopt;
        }
        const std::uint8_t lead = *cursor_;
        const std::size_t more = lead < 0x80 ? 0 : lead < 0xC0 ? 1 : 3;
        if (1 + more > remaining()) {
            return std::nullopt;
        }
        std::uint32_t value = lead & (more == 0 ? 0x7Fu : more == 1 ? 0x3Fu : 0x1Fu);
        for (std::size_t i = 1; i <= more; ++i) {
            value = value << 8 | cursor_[i];
        }
        cursor_ += 1 + more;
        return value;
    }

private:
    const std::uint8_t* begin_;
    const std::uint8_t* cursor_;
    const std::uint8_t* end_;
};

} // namespace corvane
