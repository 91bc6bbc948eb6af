// Cuts an input into the parts that a fuzz target needs. What an input is too short for is zero or
// empty.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace corvane {

class Input {
public:
    explicit Input(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

    std::uint8_t byte() {
        const auto taken = bytes(1);
        return taken.empty() ? std::uint8_t{0} : taken[0];
    }
    std::uint32_t number() { // four bytes, the lowest first
        std::uint32_t value = 0;
        for (int shift = 0; shift < 32; shift += 8) {
            value |= std::uint32_t{byte()} << shift;
        }
        return value;
    }
    std::span<const std::uint8_t> bytes(std::size_t count) {
        const auto taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }
    std::span<const std::uint8_t> rest() { return bytes(rest_.size()); }

    // Up to the next line break, which is taken as well.
    std::string line() {
        const auto end = std::find(rest_.begin(), rest_.end(), std::uint8_t{'\n'});
        const auto taken = bytes(static_cast<std::size_t>(end - rest_.begin()));
        byte();
        return {taken.begin(), taken.end()};
    }
    std::string text() {
        const auto taken = rest();
        return {taken.begin(), taken.end()};
    }

private:
    std::span<const std::uint8_t> rest_;
};

// One wide character a byte.
inline std::wstring wide(std::span<const std::uint8_t> bytes) {
    return {bytes.begin(), bytes.end()};
}

} // namespace corvane
