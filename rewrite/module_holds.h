// The module of a method that is compiled stays loaded until it is. Any other may be unloaded while
// it is looked at, and the runtime crashes when it is asked with an id that stands for nothing any
// more. So whoever looks at others holds them all for that time, and a module that is about to go
// waits: the runtime does not list it any more by then.
#pragma once

#include <shared_mutex>

namespace corvane {

// Until the result is destroyed. Not for long, and no module is loaded meanwhile.
[[nodiscard]] std::shared_lock<std::shared_mutex> hold_modules();

// Returns when nobody holds those that were listed before.
void wait_for_module_holds();

} // namespace corvane
