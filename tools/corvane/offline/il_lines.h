// A method body as lines that people read: names instead of tokens, protected blocks in braces
// around their instructions. And which lines of two bodies are the same.
#pragma once

#include "tools/corvane/offline/metadata_names.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace corvane::tool {

struct IlLine {
    unsigned depth = 0;  // of the blocks around it
    std::string label{}; // "IL_0000", of an instruction
    std::string text{};
    // The same for lines that mean the same in two bodies, wherever they stand.
    std::string meaning{};
};

// Nothing for bytes that are no body.
std::optional<std::vector<IlLine>> il_lines(std::span<const std::uint8_t> body,
                                            MetadataNames& names);

// One line of both sides, or of one.
struct LinePair {
    std::optional<std::size_t> before;
    std::optional<std::size_t> after;
    bool operator==(const LinePair&) const = default;
};

// In the order of both. Lines that differ stand side by side where they replace each other.
std::vector<LinePair> align(const std::vector<IlLine>& before, const std::vector<IlLine>& after);

} // namespace corvane::tool
