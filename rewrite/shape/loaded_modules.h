// The modules that the runtime has said are loaded and that stay so. It crashes when it is asked
// about one that the garbage collector is taking away, also before it has said that it does; and
// its own list has such ones, and others that are on their way in. So whoever looks at modules
// other than that of the method that is compiled takes them from here. Where modules go with an
// application domain, they wait until nobody looks. Any thread.
#pragma once

#include "clr/cor_profiler.h"

#include <functional>

namespace corvane {

// What the callbacks of these events do. `info` tells whether a module can be collected; without
// it, on a runtime that has no such modules, it is null. False for one that can be, which is not
// added. Throws std::bad_alloc.
bool add_loaded_module(ICorProfilerInfo3* info, ModuleID module);
void remove_loaded_module(ModuleID module); // returns when nobody looks at it any more

// Whether it is one of them.
bool is_loaded_module(ModuleID module);

// Shows the modules until `visit` answers false or throws. Not for long, and nothing is loaded or
// unloaded in it, which would wait for itself.
void visit_loaded_modules(const std::function<bool(ModuleID module)>& visit);

} // namespace corvane
