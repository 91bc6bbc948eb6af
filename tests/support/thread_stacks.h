// stacks_of: where the threads of another process are, for the message about one that does not end.
#pragma once

#include <windows.h>

#include <string>

namespace corvane::testing {

// A line for each thread, then one for each value of the upper part of its stack that lies in the
// code of a module: "  ntdll!NtWaitForSingleObject+0x14". Not all of them are frames: values of
// calls that have ended lie there, too. The threads stay suspended; the process is to be ended.
std::string stacks_of(HANDLE process);

} // namespace corvane::testing
