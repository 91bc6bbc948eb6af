// The two blocks around a method's own code: one reports its exceptions and rethrows them, the
// other logs that the method has ended.
#pragma once

#include "rewrite/emit/emission.h"

namespace corvane {

// Each makes a block of everything from `first` to where the builder stands and emits its handler;
// what is emitted next is where the block goes on. Fail when a local or a text cannot be added to
// the module.

// The exception is thrown by `throw` and not by `rethrow`: the object is the same, its stack trace
// begins here.
HRESULT emit_catch_and_throw(Emission& emission, IlBuilder& il, Instruction* first);
HRESULT emit_finally(Emission& emission, IlBuilder& il, Instruction* first);

} // namespace corvane
