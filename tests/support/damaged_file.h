// Damage to a file, the same for the same number.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace corvane::testing {

// Some bytes or numbers are others, anywhere in the file or only in a part of it; or its end is
// missing.
inline std::vector<std::uint8_t> damaged(std::vector<std::uint8_t> file, std::size_t part_begin,
                                         std::size_t part_size, std::uint32_t number) {
    constexpr std::array<std::uint8_t, 4> kLimits = {0x00, 0x7F, 0x80, 0xFF};
    constexpr std::size_t kHeader = 200; // of the part: what is there decides about the rest
    std::mt19937 random(number);
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    struct {
        std::size_t begin;
        std::size_t size;
    } const places[] = {{0, file.size()}, {part_begin, part_size}, {part_begin, kHeader}};
    const auto place = places[below(std::size(places))];
    for (std::size_t changes = 1 + below(16); changes > 0; --changes) {
        const std::size_t at = place.begin + below(place.size);
        const std::size_t length = below(4) == 0 ? 4 : 1;
        for (std::size_t i = at; i < std::min(at + length, file.size()); ++i) {
            const auto any = static_cast<std::uint8_t>(random());
            file[i] = below(2) == 0 ? kLimits[below(kLimits.size())] : any;
        }
    }
    if (below(10) == 0) {
        file.resize(below(file.size()));
    }
    return file;
}

} // namespace corvane::testing
