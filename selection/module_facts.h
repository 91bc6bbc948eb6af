// The first question about a method: can its description lead to anything? Of most methods the name
// alone rules that out, together with facts about their module: which attributes it can name, which
// of its types a pattern may mean, and whether all that is asked about the module itself succeeds.
// The facts are learnt at the module's first method, from the image that the runtime has loaded.
// Where there is none, they come from the runtime's metadata and follow its growth. Without an
// answer, a method is described.
//
// Any thread. A lock is shared while facts are learnt or used; whoever forgets them takes it alone.
// 150 modules take 12 KiB here, however many methods they have, and the table itself 2 KiB. With
// patterns each type takes one byte more. The metadata engine takes some KiB for each module.
#pragma once

#include "clr/cor_profiler.h"

namespace corvane {

// Whether to describe the method (method_info.h). If not, its description would succeed, and the
// method would not be chosen, without a line in the log. Takes nothing from the heap except for
// the first method of a module.
bool needs_description(ICorProfilerInfo* info, FunctionID function) noexcept;

// When a module is unloaded. Returns when no thread uses its facts.
void forget_module_facts(ModuleID module) noexcept;

} // namespace corvane
