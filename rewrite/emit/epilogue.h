// The code at the single exit of an instrumented method: hands the managed library the receiver,
// the arguments as they are by then, and the result, which it cannot change.
#pragma once

#include "rewrite/emit/emission.h"

namespace corvane {

// In place of the local of a method without a result.
inline constexpr std::uint32_t kNoReturnLocal = 0xFFFFFFFF;

// Emits where the builder stands. Fails when a local or a text cannot be added to the module.
HRESULT EmitEpilogue(Emission& emission, IlBuilder& il, std::uint32_t return_local);

} // namespace corvane
