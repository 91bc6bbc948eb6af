#include "tools/corvane/launch.h"

#include "base/hresult_text.h"
#include "base/owned_handle.h"
#include "tools/corvane/command.h"
#include "tools/corvane/utf8.h"

#include <windows.h>

#include <atomic>

namespace corvane::tool {
namespace {

constexpr DWORD kElevationRequired = 740; // older headers lack it

// The process that is waited for, for the handler, which the system calls on a thread of its own.
std::atomic<HANDLE> waited_for = nullptr;

// A console that closes ends its processes as soon as their handlers return.
BOOL WINAPI leave_to_program(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
        WaitForSingleObject(waited_for, INFINITE);
        Sleep(1'000); // for what this process does then
    }
    return TRUE;
}

void set_limits(HANDLE job, DWORD flags) {
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = flags;
    SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof(limits));
}

// The classic length of a path is the limit of a program's file without this prefix.
std::wstring file_to_start(const std::wstring& path) {
    return path.size() < MAX_PATH || path.starts_with(L"\\\\") ? path : L"\\\\?\\" + path;
}

[[noreturn]] void fail_to_start(const Program& program, DWORD error) {
    throw Failure(
        error == kElevationRequired
            ? to_utf8(program.file.wstring()) +
                  " wants to be started as administrator: start corvane from a console that is "
                  "run as administrator"
            : "cannot start " + to_utf8(program.file.wstring()) + ": " +
                  to_utf8(hresult_text(HRESULT_FROM_WIN32(error)).c_str()));
}

} // namespace

Ended launch(const Program& program, const Environment& environment, bool detached) {
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    std::wstring line = command_line(program.words);
    std::wstring block = environment_block(environment);

    const OwnedHandle job(detached ? nullptr : CreateJobObjectW(nullptr, nullptr));
    if (job) {
        // A program may part with its children, as without a job.
        set_limits(job.get(), JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE | JOB_OBJECT_LIMIT_BREAKAWAY_OK);
    }
    PROCESS_INFORMATION created = {};
    if (CreateProcessW(file_to_start(program.file.wstring()).c_str(), line.data(), nullptr, nullptr,
                       TRUE, CREATE_UNICODE_ENVIRONMENT | CREATE_SUSPENDED, block.data(), nullptr,
                       &startup, &created) == FALSE) {
        fail_to_start(program, GetLastError());
    }
    const OwnedHandle process(created.hProcess);
    const OwnedHandle thread(created.hThread);
    if (job) {
        AssignProcessToJobObject(job.get(), process.get());
    }
    // The handler may run as long as this process does.
    HANDLE kept = nullptr;
    DuplicateHandle(GetCurrentProcess(), process.get(), GetCurrentProcess(), &kept, SYNCHRONIZE,
                    FALSE, 0);
    waited_for = kept;
    SetConsoleCtrlHandler(leave_to_program, TRUE);
    ResumeThread(thread.get());
    WaitForSingleObject(process.get(), INFINITE);
    if (job) {
        set_limits(job.get(), JOB_OBJECT_LIMIT_BREAKAWAY_OK);
    }
    Ended ended{created.dwProcessId, 0};
    GetExitCodeProcess(process.get(), &ended.exit_code);
    return ended;
}

} // namespace corvane::tool
