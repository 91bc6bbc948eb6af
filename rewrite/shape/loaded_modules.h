// The loaded modules that stay loaded. The runtime crashes on a query about a module that the
// garbage collector is taking away, even before the runtime has reported it. The runtime's own list
// has such modules, and others that are still being loaded. So code that looks at modules other
// than that of the compiled method takes them from here. Modules that go with an application domain
// wait until no thread looks. Any thread.
#pragma once

#include "clr/cor_profiler.h"

#include <cstdint>
#include <functional>

namespace corvane {

// What the callbacks of these events do. `info` tells whether a module can be collected; without
// it, on a runtime that has no such modules, it is null. False for one that can be, which is not
// added. Throws std::bad_alloc.
bool add_loaded_module(ICorProfilerInfo3* info, ModuleID module);
void remove_loaded_module(ModuleID module); // returns when nobody looks at it any more

// Whether it is one of them.
bool is_loaded_module(ModuleID module);

// Another number after any module has come or gone, one that can be collected included.
std::uint64_t loaded_modules_state();

// Shows the modules until `visit` answers false or throws. Not for long, and nothing is loaded or
// unloaded in it, which would wait for itself.
void visit_loaded_modules(const std::function<bool(ModuleID module)>& visit);

} // namespace corvane
