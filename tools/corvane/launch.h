// Starts a program in the place of this one: the same standard streams and working folder, the
// program's exit code.
#pragma once

#include "tools/corvane/environment.h"
#include "tools/corvane/program.h"

namespace corvane::tool {

struct Ended {
    unsigned long process = 0;
    unsigned long exit_code = 0;
};

struct LaunchOptions {
    bool is_detached = false;        // the program outlives this process
    bool waits_for_children = false; // and for theirs, until Ctrl+C
};

// Ctrl+C and the like are the program's, and this process waits for what it makes of them. Unless
// it is detached, the program ends with this process if that is killed; what the program started
// ends with it then, too, and lives on otherwise. Throws Failure if it cannot be started.
Ended launch(const Program& program, const Environment& environment, const LaunchOptions& options);

} // namespace corvane::tool
