// Methods that were left unchanged stay so until their module is unloaded. A reason may disappear,
// for example when the managed library is loaded later. But by then the method may be running, and
// the runtime can move a running call into newly compiled code (on-stack replacement), which must
// be of the same body. The list also keeps a method from being examined and reported once for every
// tier. Any compiling thread, and the thread that unloads a module; one lock, held for one access.
#pragma once

#include "clr/cor_profiler.h"

namespace corvane {

[[nodiscard]] bool is_left(ModuleID module, mdMethodDef method);
void leave_for_good(ModuleID module, mdMethodDef method);
void forget_left_methods(ModuleID module);

} // namespace corvane
