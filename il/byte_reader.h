// The one bounded reader of everything that comes in as raw metadata or IL: signatures, bodies,
// sections. It compares a length with what is left, so that no pointer past the end is ever formed.
// A read that fails moves nothing and leaves its result alone. It owns no bytes; a value is used by
// one thread.
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
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

    // A little-endian integer as wide as the variable that takes it.
    template <std::integral T>
    [[nodiscard]] bool read(T& value) {
        static_assert(std::endian::native == std::endian::little);
        if (sizeof(T) > remaining()) {
            return false;
        }
        std::memcpy(&value, cursor_, sizeof(T));
        cursor_ += sizeof(T);
        return true;
    }

    // A compressed unsigned integer (ECMA-335 II.23.2): 0xxxxxxx, 10xxxxxx and one byte more, or
    // 110xxxxx and three more, most significant byte first. An encoding longer than necessary is
    // accepted.
    [[nodiscard]] bool read_compressed(std::uint32_t& value) {
        std::uint8_t lead = 0;
        ByteReader ahead = *this;
        if (!ahead.read(lead) || lead >= 0xE0) {
            return false;
        }
        const std::size_t more = lead < 0x80 ? 0 : lead < 0xC0 ? 1 : 3;
        if (more > ahead.remaining()) {
            return false;
        }
        std::uint32_t bits = lead & (more == 0 ? 0x7Fu : more == 1 ? 0x3Fu : 0x1Fu);
        for (std::size_t i = 0; i < more; ++i) {
            bits = bits << 8 | ahead.cursor_[i];
        }
        cursor_ += 1 + more;
        value = bits;
        return true;
    }

private:
    const std::uint8_t* begin_;
    const std::uint8_t* cursor_;
    const std::uint8_t* end_;
};

} // namespace corvane
