// Runs a program as its debugger, so that what it writes to the debugger output can be read; or,
// when nobody wants to read that, without one. One call runs one program to its end on the calling
// thread.
#pragma once

#include "base/owned_handle.h"

#include <windows.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace corvane {

struct DebuggeeOptions {
    std::wstring program;                // path of the executable
    std::vector<std::wstring> arguments; // behind the program's name
    // Changes to the environment that the program inherits; no value removes a variable.
    std::map<std::wstring, std::optional<std::wstring>> environment;
    std::wstring directory;     // working directory; empty: the caller's
    std::wstring input_file;    // standard input; empty: the caller's
    std::wstring output_file;   // standard output and error; empty: all streams are the caller's
    std::wstring error_file;    // standard error alone
    bool passes_errors = false; // standard error is the caller's in any case
    std::chrono::milliseconds timeout = std::chrono::minutes(5);
    std::function<void(const std::wstring& line)> on_debug_output; // none: no debugger
    // What the program raises, as its debugger hears of it; only with `on_debug_output`.
    std::function<void(const EXCEPTION_DEBUG_INFO& raised)> on_exception;
};

struct DebuggeeResult {
    DWORD exit_code = 0;
    bool timed_out = false; // it was ended for running too long
    std::string stacks;     // then: where its threads were
};

// Throws std::system_error when the program cannot be started.
DebuggeeResult run_debuggee(const DebuggeeOptions& options);

// The same, without a debugger, still running; the process and its id. `flags` are those of
// CreateProcess.
struct RunningProgram {
    OwnedHandle process;
    DWORD id = 0;
};
RunningProgram start_program(const DebuggeeOptions& options, DWORD flags = 0);

} // namespace corvane
