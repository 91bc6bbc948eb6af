#include "tests/support/debuggee.h"

#include "base/owned_handle.h"

#include <cwchar>
#include <memory>
#include <system_error>

// The form of WaitForDebugEvent that gives wide debugger output as it is; the other narrows it.
// Older headers lack it.
extern "C" WINBASEAPI BOOL WINAPI WaitForDebugEventEx(LPDEBUG_EVENT event, DWORD milliseconds);

namespace corvane {
namespace {

[[noreturn]] void throw_last_error(const char* what) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), what);
}

struct IgnoreCase {
    bool operator()(const std::wstring& left, const std::wstring& right) const {
        return _wcsicmp(left.c_str(), right.c_str()) < 0;
    }
};

// The block that CreateProcessW takes: sorted NAME=value texts, each terminated, and one more zero.
std::wstring environment_block(const DebuggeeOptions& options) {
    std::map<std::wstring, std::wstring, IgnoreCase> variables;
    const std::unique_ptr<wchar_t, decltype(&FreeEnvironmentStringsW)> inherited(
        GetEnvironmentStringsW(), &FreeEnvironmentStringsW);
    if (!inherited) {
        throw_last_error("cannot read the environment");
    }
    for (const wchar_t* entry = inherited.get(); *entry != L'\0'; entry += std::wcslen(entry) + 1) {
        const std::wstring text(entry);
        const std::size_t equals = text.find(L'=', 1); // "=C:=C:\folder" is named "=C:"
        variables[text.substr(0, equals)] = text.substr(equals + 1);
    }
    for (const auto& [name, value] : options.environment) {
        if (value) {
            variables[name] = *value;
        } else {
            variables.erase(name);
        }
    }
    std::wstring block;
    for (const auto& [name, value] : variables) {
        block += name + L'=' + value + L'\0';
    }
    return block + L'\0';
}

std::wstring command_line(const DebuggeeOptions& options) {
    std::wstring line = quote_argument(options.program);
    for (const std::wstring& argument : options.arguments) {
        line += L' ' + quote_argument(argument);
    }
    return line;
}

// Text of the process up to its terminator, which `length` counts.
template <class Char>
std::basic_string<Char> read_text(HANDLE process, const void* address, std::size_t length) {
    std::basic_string<Char> text(length, Char());
    SIZE_T read = 0;
    ReadProcessMemory(process, address, text.data(), length * sizeof(Char), &read);
    text.resize(read / sizeof(Char));
    return text.substr(0, text.find(Char()));
}

std::wstring widen(const std::string& text) {
    const int size = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0'); // no code page takes more characters than bytes
    const int length = MultiByteToWideChar(CP_ACP, 0, text.data(), size, wide.data(), size);
    wide.resize(static_cast<std::size_t>(length));
    return wide;
}

std::wstring debug_output(HANDLE process, const OUTPUT_DEBUG_STRING_INFO& info) {
    if (info.fUnicode != 0) {
        return read_text<wchar_t>(process, info.lpDebugStringData, info.nDebugStringLength);
    }
    return widen(read_text<char>(process, info.lpDebugStringData, info.nDebugStringLength));
}

// Handles one event and says how the thread that it came from is to go on. `loaded` is set by the
// breakpoint with which the loader tells the debugger that it is done.
DWORD handle_event(const DebuggeeOptions& options, HANDLE process, const DEBUG_EVENT& event,
                   bool& loaded) {
    switch (event.dwDebugEventCode) {
    case OUTPUT_DEBUG_STRING_EVENT:
        options.on_debug_output(debug_output(process, event.u.DebugString));
        return DBG_CONTINUE;
    case CREATE_PROCESS_DEBUG_EVENT:
        OwnedHandle(event.u.CreateProcessInfo.hFile).reset();
        return DBG_CONTINUE;
    case LOAD_DLL_DEBUG_EVENT:
        OwnedHandle(event.u.LoadDll.hFile).reset();
        return DBG_CONTINUE;
    case EXCEPTION_DEBUG_EVENT:
        // The loader's breakpoint is the debugger's; every other exception is the program's.
        if (!loaded && event.u.Exception.ExceptionRecord.ExceptionCode == EXCEPTION_BREAKPOINT) {
            loaded = true;
            return DBG_CONTINUE;
        }
        if (options.on_exception) {
            options.on_exception(event.u.Exception);
        }
        return DBG_EXCEPTION_NOT_HANDLED;
    default:
        return DBG_CONTINUE;
    }
}

OwnedHandle open_output(const std::wstring& file) {
    SECURITY_ATTRIBUTES inheritable = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    const HANDLE handle = CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inheritable,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        throw_last_error("cannot write the program's output file");
    }
    return OwnedHandle(handle);
}

DebuggeeResult debug_to_end(const DebuggeeOptions& options, HANDLE process) {
    DebuggeeResult result;
    bool loaded = false;
    const auto deadline = std::chrono::steady_clock::now() + options.timeout;
    for (;;) {
        if (!result.timed_out && std::chrono::steady_clock::now() > deadline) {
            result.timed_out = true;
            TerminateProcess(process, 1);
        }
        DEBUG_EVENT event = {};
        if (WaitForDebugEventEx(&event, 100) == FALSE) {
            if (GetLastError() != ERROR_SEM_TIMEOUT) {
                throw_last_error("cannot go on debugging the program");
            }
            continue;
        }
        const DWORD status = handle_event(options, process, event, loaded);
        ContinueDebugEvent(event.dwProcessId, event.dwThreadId, status);
        if (event.dwDebugEventCode == EXIT_PROCESS_DEBUG_EVENT) {
            result.exit_code = event.u.ExitProcess.dwExitCode;
            return result;
        }
    }
}

DebuggeeResult wait_for_end(const DebuggeeOptions& options, HANDLE process) {
    DebuggeeResult result;
    const auto milliseconds = static_cast<DWORD>(options.timeout.count());
    if (WaitForSingleObject(process, milliseconds) == WAIT_TIMEOUT) {
        result.timed_out = true;
        TerminateProcess(process, 1);
        WaitForSingleObject(process, INFINITE);
    }
    if (GetExitCodeProcess(process, &result.exit_code) == FALSE) {
        throw_last_error("cannot read how the program ended");
    }
    return result;
}

} // namespace

std::wstring quote_argument(const std::wstring& argument) {
    if (!argument.empty() && argument.find_first_of(L" \t\"") == std::wstring::npos) {
        return argument;
    }
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0; // they count double before a quote, and only there
    for (const wchar_t c : argument) {
        if (c == L'"') {
            quoted.append(backslashes + 1, L'\\');
        }
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        quoted += c;
    }
    return quoted.append(backslashes, L'\\') + L'"';
}

DebuggeeResult run_debuggee(const DebuggeeOptions& options) {
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    OwnedHandle output;
    if (!options.output_file.empty()) {
        output = open_output(options.output_file);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
        startup.hStdOutput = output.get();
        startup.hStdError = options.passes_errors ? GetStdHandle(STD_ERROR_HANDLE) : output.get();
    }
    std::wstring line = command_line(options);
    std::wstring environment = environment_block(options);
    const bool is_debugged = static_cast<bool>(options.on_debug_output);
    PROCESS_INFORMATION created = {};
    if (CreateProcessW(options.program.c_str(), line.data(), nullptr, nullptr, TRUE,
                       CREATE_UNICODE_ENVIRONMENT | (is_debugged ? DEBUG_ONLY_THIS_PROCESS : 0),
                       environment.data(),
                       options.directory.empty() ? nullptr : options.directory.c_str(), &startup,
                       &created) == FALSE) {
        throw_last_error("cannot start the program");
    }
    const OwnedHandle process(created.hProcess);
    const OwnedHandle thread(created.hThread);

    return is_debugged ? debug_to_end(options, process.get())
                       : wait_for_end(options, process.get());
}

} // namespace corvane
