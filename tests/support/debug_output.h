// DebugOutput: collects what this process writes to the debugger output while it lives.
// The platform raises an exception for every line; a handler that sees it first keeps the text and
// lets the program go on, as a debugger would. The process takes it for a debugger. One at a time.
#pragma once

#include <string>
#include <string_view>

namespace corvane::testing {

// While it lives the process knows, or does not know, of a debugger.
class DebuggerPresence {
public:
    explicit DebuggerPresence(bool present);
    DebuggerPresence(const DebuggerPresence&) = delete;
    DebuggerPresence& operator=(const DebuggerPresence&) = delete;
    ~DebuggerPresence();

private:
    bool before_;
};

class DebugOutput {
public:
    DebugOutput();
    DebugOutput(const DebugOutput&) = delete;
    DebugOutput& operator=(const DebugOutput&) = delete;
    ~DebugOutput();

    // The lines so far, as written.
    static const std::wstring& raw();

    // The same, each line ended, without the id of this thread and its blank at its start.
    static std::wstring text();

    // How many lines came wide, how many narrow.
    static int wide_lines();
    static int narrow_lines();

private:
    DebuggerPresence debugger_{true};
    void* handler_;
};

} // namespace corvane::testing
