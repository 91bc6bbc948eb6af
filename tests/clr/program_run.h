// Runs a program to its end without being its debugger, which would slow down each of its threads.
#pragma once

#include "tests/clr/runtime_test.h"

#include <chrono>

namespace corvane::testing {

struct ProgramRun {
    DWORD exit_code = 0;
    bool timed_out = false; // it hung, and was ended
    std::string output;     // what it wrote to its standard output, line ends as they are
};

// `arguments` as they stand in the command line; `environment` is added to this process's own. What
// the program writes to its standard error goes where this program's goes. Throws
// std::runtime_error when it cannot be started.
ProgramRun run_program(const std::filesystem::path& program, const std::wstring& arguments,
                       const Environment& environment, std::chrono::seconds timeout);

} // namespace corvane::testing
