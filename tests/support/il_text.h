// A method body as people read IL: names instead of tokens, instructions numbered, one a line.
#pragma once

#include "clr/metadata.h"

#include <cstdint>
#include <span>
#include <string>

namespace corvane::testing {

// Names are those of the module whose metadata it is. Throws std::runtime_error for what is no
// body.
std::string il_text(std::span<const std::uint8_t> body, IMetaDataImport& metadata);

} // namespace corvane::testing
