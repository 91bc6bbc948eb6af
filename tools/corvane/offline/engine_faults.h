// The runtime's metadata engine checks most of what it reads, and not all: damaged metadata can
// make it fail with an access violation. Nothing can go on in a process after that.
#pragma once

#include <string>

namespace corvane::tool {

// From now on such a failure ends the process with this line on standard error and this exit code.
// A failure outside the engine stays what it is: a crash.
void end_on_engine_fault(std::string line, int exit_code);

} // namespace corvane::tool
