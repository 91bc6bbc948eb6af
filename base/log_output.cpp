#include "base/log_output.h"

#include "base/log_file.h"
#include "base/owned_handle.h"

#include <windows.h>

#include <atomic>
#include <exception>
#include <string>
#include <string_view>

namespace corvane {
namespace {

constinit std::atomic<std::int32_t> level = 3;
constinit std::atomic<bool> starting_up = true;

// Belongs to the process. One that another takes the place of stays: a thread may be using it.
constinit std::atomic<LogFile*> log_file = nullptr;

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

bool debugger_output_is_read() {
    return starting_up.load(std::memory_order_relaxed) || IsDebuggerPresent() != FALSE ||
           a_viewer_listens();
}

void write(const wchar_t* line) {
    OutputDebugStringW(line);
}
void write(const char* line) {
    OutputDebugStringA(line);
}

std::wstring_view widened(const wchar_t* line) {
    return line;
}
std::wstring widened(const char* line) {
    std::wstring wide;
    for (const char c : std::string_view(line)) {
        wide += static_cast<wchar_t>(static_cast<unsigned char>(c));
    }
    return wide;
}

template <class Char>
void send(const Char* line) noexcept {
    const bool to_debugger = debugger_output_is_read();
    if (to_debugger) {
        write(line);
    }
    LogFile* const file = log_file;
    if (file == nullptr) {
        return;
    }
    try {
        const std::wstring failure = file->append(widened(line));
        if (!failure.empty() && to_debugger && level >= 1) {
            write((std::to_wstring(GetCurrentThreadId()) + L' ' + failure).c_str());
        }
    } catch (const std::exception&) {
        // Out of memory: the file goes on without this line.
    }
}

} // namespace

std::int32_t log_level() noexcept {
    return level.load(std::memory_order_relaxed);
}

void begin_log(const LogSettings& settings) {
    level = settings.level;
    log_file = settings.file.empty() ? nullptr : new LogFile(settings.file, settings.limit);
}

void end_log_file(bool process_ends) noexcept {
    LogFile* const file = log_file.exchange(nullptr);
    if (!process_ends) {
        delete file;
    }
}

bool log_is_read() noexcept {
    const LogFile* const file = log_file.load(std::memory_order_relaxed);
    return (file != nullptr && file->takes_lines()) || debugger_output_is_read();
}

void send_to_log(const wchar_t* line) noexcept {
    send(line);
}

void send_to_log(const char* line) noexcept {
    send(line);
}

StartUpLines::StartUpLines() noexcept {
    starting_up = true;
}

StartUpLines::~StartUpLines() {
    starting_up = false;
}

} // namespace corvane
