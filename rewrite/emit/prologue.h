// The code at the start of an instrumented method: makes sure that the managed library knows the
// method, hands it receiver and arguments, and stores the arguments that it replaced.
#pragma once

#include "rewrite/emit/emission.h"

namespace corvane {

// Inserts in front of `own_code`. Fails when a local or a text cannot be added to the module.
HRESULT EmitPrologue(Emission& emission, Instruction* own_code);

} // namespace corvane
