#include "base/log_output.h"

#include "base/owned_handle.h"

#include <windows.h>

#include <atomic>
#include <cstdint>

namespace corvane {
namespace {

constinit std::atomic<bool> starting_up = true;

// A viewer gives this event when it is ready for a line. The system's own look before each line is
// the same one: by this name, which is the session's own, and with this access.
bool a_viewer_listens_now() {
    return OwnedHandle(OpenEventW(SYNCHRONIZE, FALSE, L"DBWIN_BUFFER_READY")) != nullptr;
}

// The time of a look for viewers, in ms since the system started, and what it found: one word, so
// that threads never see the one without the other. A clock that is set does not reach that time.
struct Look {
    static constexpr std::uint64_t kLasts = 100;

    std::uint64_t word = 0;

    Look(std::uint64_t time, bool found) : word(time << 1 | (found ? 1U : 0U)) {}
    explicit Look(std::uint64_t known) : word(known) {}

    [[nodiscard]] std::uint64_t time() const { return word >> 1; }
    [[nodiscard]] bool found() const { return (word & 1) != 0; }
};

constinit std::atomic<std::uint64_t> last_look = 0;

bool a_viewer_listens() {
    const std::uint64_t now = GetTickCount64();
    const Look last(last_look.load(std::memory_order_relaxed));
    if (last.word != 0 && now - last.time() < Look::kLasts) {
        return last.found();
    }
    const Look look(now, a_viewer_listens_now());
    last_look.store(look.word, std::memory_order_relaxed);
    return look.found();
}

} // namespace

bool log_is_read() noexcept {
    return starting_up.load(std::memory_order_relaxed) || IsDebuggerPresent() != FALSE ||
           a_viewer_listens();
}

void send_to_log(const wchar_t* line) noexcept {
    if (log_is_read()) {
        OutputDebugStringW(line);
    }
}

void send_to_log(const char* line) noexcept {
    if (log_is_read()) {
        OutputDebugStringA(line);
    }
}

StartUpLines::StartUpLines() noexcept {
    starting_up = true;
}

StartUpLines::~StartUpLines() {
    starting_up = false;
}

} // namespace corvane
