#include "tools/corvane/launch.h"

#include "base/hresult_text.h"
#include "base/owned_handle.h"
#include "tools/corvane/command.h"
#include "tools/corvane/console.h"
#include "tools/corvane/process_name.h"
#include "tools/corvane/utf8.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <string>

namespace corvane::tool {
namespace {

constexpr DWORD kElevationRequired = 740; // older headers lack it

constexpr DWORD kEndedByCtrlC = 0xC000013A;
constexpr DWORD kPause = 200; // milliseconds between two looks at what still runs

// What the handler needs, which the system calls on a thread of its own.
struct Interrupts {
    // Ctrl+C while there is no program that it is for.
    const OwnedHandle stop{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    std::atomic<bool> are_programs = false;
    std::atomic<HANDLE> program = nullptr;
};

Interrupts& interrupts() {
    static Interrupts& all = *new Interrupts; // the handler may run to the end
    return all;
}

// A console that closes ends its processes as soon as their handlers return.
BOOL WINAPI leave_to_program(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
        WaitForSingleObject(interrupts().program, INFINITE);
        Sleep(1'000); // for what this process does then
    } else if (!interrupts().are_programs) {
        SetEvent(interrupts().stop.get());
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

std::string error_text(DWORD error) {
    return to_utf8(hresult_text(HRESULT_FROM_WIN32(error)).c_str());
}

[[noreturn]] void fail_to_start(const Program& program, DWORD error) {
    throw Failure(
        error == kElevationRequired
            ? to_utf8(program.file.wstring()) +
                  " wants to be started as administrator: start corvane from a console that is "
                  "run as administrator"
            : "cannot start " + to_utf8(program.file.wstring()) + ": " + error_text(error));
}

// Null, and a line, if the program runs without one.
OwnedHandle job_of(HANDLE process, bool is_detached) {
    OwnedHandle job(CreateJobObjectW(nullptr, nullptr));
    if (job) {
        // A program may part with its children, as without a job.
        set_limits(job.get(), JOB_OBJECT_LIMIT_BREAKAWAY_OK |
                                  (is_detached ? 0 : JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE));
    }
    if (job && AssignProcessToJobObject(job.get(), process) != FALSE) {
        return job;
    }
    print_error(
        "the program cannot be put into a job, so it goes on if this command is killed, and "
        "nobody waits for what it starts: " +
        error_text(GetLastError()));
    return {};
}

std::string processes_of(HANDLE job) {
    constexpr std::size_t kMost = 64;
    std::array<ULONG_PTR, kMost + 1> found{}; // two numbers of 32 bits, then the ids
    QueryInformationJobObject(job, JobObjectBasicProcessIdList, found.data(), sizeof(found),
                              nullptr);
    std::string names;
    for (std::size_t i = 1; i < found.size() && found[i] != 0; ++i) {
        const auto id = static_cast<DWORD>(found[i]);
        names += (names.empty() ? "" : ", ") + process_name(open_process(id).get()) + '(' +
                 std::to_string(id) + ')';
    }
    return names;
}

void wait_for_children(HANDLE job) {
    bool is_said = false;
    for (;;) {
        const bool is_stopped =
            WaitForSingleObject(interrupts().stop.get(), kPause) == WAIT_OBJECT_0;
        const std::string running = processes_of(job);
        if (running.empty()) {
            return;
        }
        if (is_stopped) {
            print_error("these go on, and what they record from now on is lost: " + running);
            return;
        }
        if (!is_said) {
            print_error("waiting for what the program started and did not end: " + running +
                        "; Ctrl+C ends the waiting");
            is_said = true;
        }
    }
}

} // namespace

Ended launch(const Program& program, const Environment& environment, const LaunchOptions& options) {
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    std::wstring line = command_line(program.words);
    std::wstring block = environment_block(environment);

    Interrupts& here = interrupts();
    SetConsoleCtrlHandler(leave_to_program, TRUE);
    PROCESS_INFORMATION created = {};
    if (CreateProcessW(file_to_start(program.file.wstring()).c_str(), line.data(), nullptr, nullptr,
                       TRUE, CREATE_UNICODE_ENVIRONMENT | CREATE_SUSPENDED, block.data(), nullptr,
                       &startup, &created) == FALSE) {
        fail_to_start(program, GetLastError());
    }
    const OwnedHandle process(created.hProcess);
    const OwnedHandle thread(created.hThread);
    const OwnedHandle job = job_of(process.get(), options.is_detached);
    HANDLE kept = nullptr; // for the handler
    DuplicateHandle(GetCurrentProcess(), process.get(), GetCurrentProcess(), &kept, SYNCHRONIZE,
                    FALSE, 0);
    here.program = kept;
    here.are_programs = true;
    if (WaitForSingleObject(here.stop.get(), 0) == WAIT_OBJECT_0) {
        TerminateProcess(process.get(), kEndedByCtrlC);
    }
    ResumeThread(thread.get());
    WaitForSingleObject(process.get(), INFINITE);
    here.are_programs = false;
    if (job && options.waits_for_children) {
        wait_for_children(job.get());
    }
    if (job) {
        set_limits(job.get(), JOB_OBJECT_LIMIT_BREAKAWAY_OK);
    }
    Ended ended{created.dwProcessId, 0};
    GetExitCodeProcess(process.get(), &ended.exit_code);
    return ended;
}

} // namespace corvane::tool
