// What the header of precompiled code says. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace corvane {

// The flags of the ReadyToRun header of a 64-bit file, as the loader maps it; nothing where there
// is none.
std::optional<std::uint32_t> ready_to_run_flags(std::span<const std::uint8_t> image);

// Whether the file was compiled into one composite image with others: then its code may hold
// theirs.
constexpr bool is_part_of_composite(std::uint32_t flags) {
    constexpr std::uint32_t kComponent = 0x20;
    return (flags & kComponent) != 0;
}

} // namespace corvane
