#include "tests/support/debug_output.h"

#include <windows.h>

#include <winternl.h>

#include <vector>

namespace corvane::testing {
namespace {

constexpr DWORD kNarrow = 0x40010006; // DBG_PRINTEXCEPTION_C
constexpr DWORD kWide = 0x4001000A;   // DBG_PRINTEXCEPTION_WIDE_C

struct Collected {
    std::wstring raw;
    std::vector<std::wstring> lines;
    int wide = 0;
    int narrow = 0;
};
Collected collected;

// What IsDebuggerPresent reads, in whichever image it is called.
BYTE& debugger_flag() {
    using GetBlock = PEB*(NTAPI*)();
    static const auto get_block = reinterpret_cast<GetBlock>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetCurrentPeb")));
    return get_block()->BeingDebugged;
}

LONG CALLBACK collect(EXCEPTION_POINTERS* pointers) {
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    if (record.ExceptionCode != kNarrow && record.ExceptionCode != kWide) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    std::wstring line;
    if (record.ExceptionCode == kWide) {
        line = reinterpret_cast<const wchar_t*>(record.ExceptionInformation[1]);
        ++collected.wide;
    } else {
        const std::string narrow = reinterpret_cast<const char*>(record.ExceptionInformation[1]);
        line.assign(narrow.begin(), narrow.end());
        ++collected.narrow;
    }
    collected.raw += line;
    collected.lines.push_back(line);
    return EXCEPTION_CONTINUE_EXECUTION;
}

} // namespace

DebuggerPresence::DebuggerPresence(bool present) : before_(debugger_flag() != 0) {
    debugger_flag() = present ? 1 : 0;
}

DebuggerPresence::~DebuggerPresence() {
    debugger_flag() = before_ ? 1 : 0;
}

DebugOutput::DebugOutput() {
    collected = {};
    handler_ = AddVectoredExceptionHandler(1, collect);
}

DebugOutput::~DebugOutput() {
    RemoveVectoredExceptionHandler(handler_);
}

const std::wstring& DebugOutput::raw() {
    return collected.raw;
}
int DebugOutput::wide_lines() {
    return collected.wide;
}
int DebugOutput::narrow_lines() {
    return collected.narrow;
}

std::wstring DebugOutput::text() {
    const std::wstring start = std::to_wstring(GetCurrentThreadId()) + L' ';
    std::wstring text;
    for (const std::wstring& line : collected.lines) {
        text += line.starts_with(start) ? line.substr(start.size()) : line;
        text += L'\n';
    }
    return text;
}

} // namespace corvane::testing
