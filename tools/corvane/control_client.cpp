#include "tools/corvane/control_client.h"

#include "base/hresult_text.h"
#include "base/owned_handle.h"
#include "tools/corvane/command.h"
#include "tools/corvane/control_answer.h"
#include "tools/corvane/utf8.h"

#include <array>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace corvane::tool {
namespace {

constexpr DWORD kPatience = 15'000; // milliseconds until the process has answered somebody else
constexpr DWORD kGap = 500;         // between two clients there may be no pipe
constexpr DWORD kPause = 20;

std::string process_text(unsigned process) {
    return "process " + std::to_string(process);
}

std::string error_text(DWORD error) {
    return to_utf8(hresult_text(HRESULT_FROM_WIN32(error)).c_str());
}

[[noreturn]] void fail_to_connect(unsigned process, DWORD error) {
    const OwnedHandle running(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process));
    if (!running && GetLastError() == ERROR_INVALID_PARAMETER) {
        throw Failure("there is no " + process_text(process), kNotControlled);
    }
    switch (error) {
    case ERROR_FILE_NOT_FOUND:
        throw Failure(process_text(process) +
                          " cannot be asked: it does not run under the profiler, or was started "
                          "without CORVANE_CONTROL=1; \"corvane run\" sets that",
                      kNotControlled);
    case ERROR_ACCESS_DENIED:
        throw Failure(process_text(process) + " belongs to another user: ask as that one, or as "
                                              "administrator",
                      kNotControlled);
    case ERROR_PIPE_BUSY:
        throw Failure(process_text(process) + " is answering somebody else; try again later",
                      kNotControlled);
    default:
        throw Failure(process_text(process) + " cannot be asked: " + error_text(error),
                      kNotControlled);
    }
}

OwnedHandle connect(unsigned process) {
    const std::wstring name = L"\\\\.\\pipe\\corvane-" + std::to_wstring(process);
    const ULONGLONG begin = GetTickCount64();
    for (;;) {
        // Who serves the pipe may not act as this user.
        const HANDLE pipe =
            CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                        SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
        if (pipe != INVALID_HANDLE_VALUE) {
            return OwnedHandle(pipe);
        }
        const DWORD error = GetLastError();
        const ULONGLONG waited = GetTickCount64() - begin;
        const ULONGLONG most = error == ERROR_PIPE_BUSY        ? kPatience
                               : error == ERROR_FILE_NOT_FOUND ? kGap
                                                               : 0;
        if (waited >= most) {
            fail_to_connect(process, error);
        }
        Sleep(kPause);
    }
}

// The one who made the pipe may be another process, in the place of the one that is asked.
void require_server(HANDLE pipe, unsigned process) {
    ULONG server = 0;
    if (GetNamedPipeServerProcessId(pipe, &server) == FALSE || server != process) {
        throw Failure("the pipe of " + process_text(process) + " belongs to " +
                          process_text(server),
                      kNotControlled);
    }
}

} // namespace

Parts ask(unsigned process, const std::string& request,
          const std::function<void(unsigned seconds)>& wait) {
    const OwnedHandle pipe = connect(process);
    require_server(pipe.get(), process);
    const std::string line = request + '\n';
    DWORD count = 0;
    bool is_there = WriteFile(pipe.get(), line.data(), static_cast<DWORD>(line.size()), &count,
                              nullptr) != FALSE;
    ControlAnswer answer;
    std::array<char, 65'536> bytes{};
    try {
        while (is_there && !answer.is_complete()) {
            is_there = ReadFile(pipe.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &count,
                                nullptr) != FALSE &&
                       count > 0;
            answer.add(std::string_view(bytes.data(), is_there ? count : 0));
            if (const auto seconds = answer.take_wait()) {
                wait(*seconds);
            }
        }
    } catch (const std::runtime_error& error) {
        throw Failure(process_text(process) + ": " + error.what(), kNotControlled);
    }
    if (!answer.is_complete()) {
        throw Failure(process_text(process) + " ended, or let go, before its answer was complete",
                      kNotControlled);
    }
    if (const auto& refusal = answer.refusal()) {
        throw Failure(process_text(process) + ": " + *refusal, kRefused);
    }
    return std::move(answer.parts());
}

} // namespace corvane::tool
