#include "tests/support/debuggee.h"

#include "tests/support/thread_stacks.h"
#include "tools/corvane/environment.h"
#include "tools/corvane/words.h"

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

std::wstring changed_environment(const DebuggeeOptions& options) {
    const std::unique_ptr<wchar_t, decltype(&FreeEnvironmentStringsW)> inherited(
        GetEnvironmentStringsW(), &FreeEnvironmentStringsW);
    if (!inherited) {
        throw_last_error("cannot read the environment");
    }
    return tool::environment_block(
        tool::changed(tool::parse_environment(inherited.get()),
                      tool::Changes(options.environment.begin(), options.environment.end())));
}

std::wstring command_line(const DebuggeeOptions& options) {
    tool::Words words = options.arguments;
    words.insert(words.begin(), options.program);
    return tool::command_line(words);
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

// For a stream of the program; nothing if there is no name.
OwnedHandle open_stream(const std::wstring& file, DWORD access, DWORD creation) {
    if (file.empty()) {
        return {};
    }
    SECURITY_ATTRIBUTES inheritable = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    const HANDLE handle = CreateFileW(file.c_str(), access, FILE_SHARE_READ, &inheritable, creation,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        throw_last_error("cannot open a file for the program's streams");
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
            result.stacks = testing::stacks_of(process);
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
        result.stacks = testing::stacks_of(process);
        TerminateProcess(process, 1);
        WaitForSingleObject(process, INFINITE);
    }
    if (GetExitCodeProcess(process, &result.exit_code) == FALSE) {
        throw_last_error("cannot read how the program ended");
    }
    return result;
}

} // namespace

RunningProgram start_program(const DebuggeeOptions& options, DWORD flags) {
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    const OwnedHandle input = open_stream(options.input_file, GENERIC_READ, OPEN_EXISTING);
    const OwnedHandle output = open_stream(options.output_file, GENERIC_WRITE, CREATE_ALWAYS);
    const OwnedHandle errors = open_stream(options.error_file, GENERIC_WRITE, CREATE_ALWAYS);
    if (output) {
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = input ? input.get() : GetStdHandle(STD_INPUT_HANDLE);
        startup.hStdOutput = output.get();
        startup.hStdError = errors                  ? errors.get()
                            : options.passes_errors ? GetStdHandle(STD_ERROR_HANDLE)
                                                    : output.get();
    }
    std::wstring line = command_line(options);
    std::wstring environment = changed_environment(options);
    PROCESS_INFORMATION created = {};
    if (CreateProcessW(options.program.c_str(), line.data(), nullptr, nullptr, TRUE,
                       CREATE_UNICODE_ENVIRONMENT | flags, environment.data(),
                       options.directory.empty() ? nullptr : options.directory.c_str(), &startup,
                       &created) == FALSE) {
        throw_last_error("cannot start the program");
    }
    const OwnedHandle thread(created.hThread);
    return {OwnedHandle(created.hProcess), created.dwProcessId};
}

DebuggeeResult run_debuggee(const DebuggeeOptions& options) {
    const bool is_debugged = static_cast<bool>(options.on_debug_output);
    const RunningProgram program =
        start_program(options, is_debugged ? DEBUG_ONLY_THIS_PROCESS : 0);
    return is_debugged ? debug_to_end(options, program.process.get())
                       : wait_for_end(options, program.process.get());
}

} // namespace corvane
