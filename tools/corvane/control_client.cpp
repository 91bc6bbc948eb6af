#include "tools/corvane/control_client.h"

#include "base/hresult_text.h"
#include "base/owned_handle.h"
#include "tools/corvane/command.h"
#include "tools/corvane/control_answer.h"
#include "tools/corvane/utf8.h"

#include <array>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace corvane::tool {
namespace {

constexpr DWORD kPatience = 15'000; // milliseconds until the process has answered somebody else
constexpr DWORD kFirst = 500;       // until a process that has just begun has made its pipe
constexpr DWORD kNext = 5'000;      // between two clients there is none, for as long as the thread
                                    // that makes it gets no processor
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
    std::optional<ULONGLONG> seen; // when there was a pipe
    for (;;) {
        // Who serves the pipe may not act as this user.
        const HANDLE pipe = CreateFileW(
            name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
            FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
        if (pipe != INVALID_HANDLE_VALUE) {
            return OwnedHandle(pipe);
        }
        const DWORD error = GetLastError();
        const ULONGLONG now = GetTickCount64();
        bool may_come = false;
        if (error == ERROR_PIPE_BUSY) {
            seen = now;
            may_come = now - begin < kPatience;
        } else if (error == ERROR_FILE_NOT_FOUND) {
            may_come = seen ? now - *seen < kNext : now - begin < kFirst;
        }
        if (!may_come) {
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

// Reads and writes as long as there is progress.
class Connection {
public:
    Connection(unsigned process, unsigned patience)
        : process_(process), patience_(patience), pipe_(connect(process)) {
        require_server(pipe_.get(), process);
    }

    bool write(std::string_view bytes) {
        return finish(WriteFile(pipe_.get(), bytes.data(), static_cast<DWORD>(bytes.size()),
                                nullptr, begin())) == bytes.size();
    }

    // Nothing at the end.
    std::string_view read() {
        return {bytes_.data(),
                finish(ReadFile(pipe_.get(), bytes_.data(), static_cast<DWORD>(bytes_.size()),
                                nullptr, begin()))};
    }

private:
    OVERLAPPED* begin() {
        ResetEvent(done_.get());
        transfer_ = {};
        transfer_.hEvent = done_.get();
        return &transfer_;
    }

    // How many bytes have come or gone; 0 if the other end is closed.
    DWORD finish(BOOL is_done) {
        DWORD count = 0;
        const bool is_pending = is_done == FALSE && GetLastError() == ERROR_IO_PENDING;
        const bool is_late =
            is_pending && WaitForSingleObject(done_.get(), patience_ * 1'000) == WAIT_TIMEOUT;
        if (is_late) {
            CancelIoEx(pipe_.get(), &transfer_);
        }
        if ((is_done != FALSE || is_pending) &&
            GetOverlappedResult(pipe_.get(), &transfer_, &count, TRUE) != FALSE) {
            return count;
        }
        if (is_late) {
            throw Failure(
                process_text(process_) + " gave no answer for " + std::to_string(patience_) +
                    " s: it is stopped, or has no time for its answer; --patience S waits "
                    "longer",
                kNoAnswer);
        }
        return 0;
    }

    unsigned process_;
    unsigned patience_;
    OwnedHandle pipe_;
    OwnedHandle done_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    OVERLAPPED transfer_{};
    std::array<char, 65'536> bytes_{};
};

} // namespace

Parts ask(unsigned process, const std::string& request, unsigned patience,
          const std::function<void(unsigned seconds)>& wait) {
    const auto connection = std::make_unique<Connection>(process, patience);
    bool is_there = connection->write(request + '\n');
    ControlAnswer answer;
    try {
        while (is_there && !answer.is_complete()) {
            const std::string_view bytes = connection->read();
            is_there = !bytes.empty();
            answer.add(bytes);
            if (const auto seconds = answer.take_wait()) {
                wait(*seconds);
            }
        }
    } catch (const Failure&) {
        throw;
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
