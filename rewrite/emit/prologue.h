// The code at the start of an instrumented method. It makes the method known to the managed
// library, hands over receiver and arguments, and stores the replaced arguments.
#pragma once

#include "rewrite/emit/emission.h"

namespace corvane {

// Emits where the builder stands. Fails when a local or a text cannot be added to the module.
HRESULT EmitPrologue(Emission& emission, IlBuilder& il);

// Whether the body begins with such code. Which index and mode it was given does not matter.
[[nodiscard]] bool is_instrumented(const MethodBody& body,
                                   const InstrumentationReferences& references);

} // namespace corvane
