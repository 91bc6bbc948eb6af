// Precompiled code holds the code of small methods that it calls. So where a method may be chosen,
// the precompiled code of its callers has to be refused as well: of all methods of its module. Any
// thread. What is learnt of a module is kept until the module goes.
#pragma once

#include "clr/cor_profiler.h"

namespace corvane {

// Whether precompiled code of the function's module may hold code of a method that would be chosen.
// What cannot be learnt counts as "yes".
bool may_hold_chosen_code(ICorProfilerInfo* info, FunctionID function);

// When a module is unloaded.
void forget_precompiled_code(ModuleID module);

} // namespace corvane
