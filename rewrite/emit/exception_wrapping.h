// The two blocks around a method's own code: one reports its exceptions, the other logs that the
// method has ended.
#pragma once

#include "rewrite/emit/emission.h"

namespace corvane {

// Each makes a block of everything from `first` to where the builder stands and emits its handler;
// what is emitted next is where the block goes on. Fail when a local or a text cannot be added to
// the module.

// Reports in a catch handler. The exception is thrown by `throw` and not by `rethrow`: the object
// is the same, its stack trace begins here.
HRESULT emit_catch_and_throw(Emission& emission, IlBuilder& il, Instruction* first);

// Reports in a filter, which answers that the handler is not meant. So the exception passes as if
// the block were not there: a handler that throws anew would keep the stack of what threw before.
// What the report throws is dropped by the runtime.
HRESULT emit_reporting_filter(Emission& emission, IlBuilder& il, Instruction* first);

HRESULT emit_finally(Emission& emission, IlBuilder& il, Instruction* first);

} // namespace corvane
