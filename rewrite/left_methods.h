// Methods that were left as they are stay so until their module goes. A reason may pass, as when
// the managed library is loaded later; but by then the method may be running, and the runtime can
// move a call that runs into newly compiled code (on-stack replacement), which must be of the same
// body. It also keeps a method from being examined, and reported, once for every tier. Any
// compiling thread, and the thread that unloads a module; one lock, held for one access.
#pragma once

#include "clr/cor_profiler.h"

namespace corvane {

[[nodiscard]] bool is_left(ModuleID module, mdMethodDef method);
void leave_for_good(ModuleID module, mdMethodDef method);
void forget_left_methods(ModuleID module);

} // namespace corvane
