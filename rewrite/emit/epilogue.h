// The code at the single exit of an instrumented method. It hands the managed library the receiver,
// the arguments with their values at exit, and the result, which the library cannot change.
#pragma once

#include "rewrite/emit/emission.h"

#include <cstdint>
#include <optional>

namespace corvane {

// Emits where the builder stands. A method without a result has no local for it. Fails when a local
// or a text cannot be added to the module.
HRESULT EmitEpilogue(Emission& emission, IlBuilder& il, std::optional<std::uint8_t> return_local);

} // namespace corvane
