// corvane watch
#include "base/owned_handle.h"
#include "profiler/wide_text.h"
#include "tools/corvane/command.h"
#include "tools/corvane/console.h"
#include "tools/corvane/debugger_output.h"
#include "tools/corvane/process_name.h"
#include "tools/corvane/terminal.h"
#include "tools/corvane/utf8.h"
#include "tools/corvane/watched_line.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace corvane::tool {
namespace {

constexpr int kHighestLevel = 4;
constexpr DWORD kLongestWriting = 11'000; // milliseconds

struct Options {
    unsigned process = 0;
    std::string name;
    int level = kHighestLevel;
    unsigned seconds = 0;
    bool shows_all = false;
};

// Kept open, so that no other process gets the number of one that has ended.
class ProcessNames {
public:
    const std::string& name_of(DWORD process) {
        const auto known = processes_.find(process);
        if (known != processes_.end()) {
            return known->second.name;
        }
        if (processes_.size() >= kMost) {
            processes_.clear();
        }
        return processes_.emplace(process, ask(process)).first->second.name;
    }

private:
    static constexpr std::size_t kMost = 1'000;

    struct Process {
        OwnedHandle handle;
        std::string name;
    };

    static Process ask(DWORD process) {
        Process found = {open_process(process), {}};
        found.name = process_name(found.handle.get());
        return found;
    }

    std::map<DWORD, Process> processes_;
};

bool is_called(const std::string& process, const std::string& asked) {
    return equals_ignore_case(to_wide(process), to_wide(asked)) ||
           equals_ignore_case(to_wide(process), to_wide(asked + ".exe"));
}

std::string in_utf8(const std::string& text) {
    std::wstring wide(text.size(), L'\0');
    const int length = MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()),
                                           wide.data(), static_cast<int>(wide.size()));
    wide.resize(static_cast<std::size_t>(length));
    return to_utf8(wide);
}

std::string time_of_day() {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    char text[16] = {};
    static_cast<void>(std::snprintf(text, sizeof text, "%02u:%02u:%02u.%03u", now.wHour,
                                    now.wMinute, now.wSecond, now.wMilliseconds));
    return text;
}

Colour colour_of(Weight weight) {
    switch (weight) {
    case Weight::kDetail:
        return Colour::kFaint;
    case Weight::kLeft:
        return Colour::kWarning;
    case Weight::kFailure:
        return Colour::kBad;
    case Weight::kPlain:
        break;
    }
    return Colour::kPlain;
}

// Set by Ctrl+C and its like, on a thread of the system's.
HANDLE stop_event() {
    static const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return event;
}

BOOL WINAPI stop(DWORD) {
    SetEvent(stop_event());
    return TRUE;
}

class Watch {
public:
    explicit Watch(const Options& options) : options_(options), has_colours_(enable_colours()) {}

    void show(const DebuggerOutput::Piece& piece) {
        if (options_.process != 0 && piece.process != options_.process) {
            return;
        }
        // A text may also have been cut.
        const bool continues = open_process_ == piece.process && !is_profilers_line(piece.text);
        open_process_ = piece.is_full ? std::optional(piece.process) : std::nullopt;
        if (continues) {
            if (shows_open_) {
                write(watched_text("    ", in_utf8(piece.text)), Weight::kDetail);
            }
            return;
        }
        shows_open_ = is_shown(piece);
        if (shows_open_) {
            const std::string front = time_of_day() + ' ' + names_.name_of(piece.process) + '(' +
                                      std::to_string(piece.process) + ") ";
            write(watched_text(front, in_utf8(piece.text)), weight_of(piece.text));
        }
    }

private:
    bool is_shown(const DebuggerOutput::Piece& piece) {
        return (options_.shows_all || is_profilers_line(piece.text)) &&
               level_of(piece.text) <= options_.level &&
               (options_.name.empty() || is_called(names_.name_of(piece.process), options_.name));
    }

    void write(const std::string& text, Weight weight) const {
        print_line(coloured(text, colour_of(weight), has_colours_));
    }

    const Options& options_;
    const bool has_colours_;
    ProcessNames names_;
    std::optional<DWORD> open_process_; // whose text goes on in its next piece
    bool shows_open_ = false;
};

int watch(const Options& options) {
    DebuggerOutput output;
    if (!output.open(0)) {
        print_error("another viewer reads the debugger output of this session, or a program still "
                    "writes to one that has ended; waiting");
        if (!output.open(kLongestWriting)) {
            throw Failure("another viewer reads the debugger output of this session; end it "
                          "first, or have a file written: CORVANE_LOG_FILE",
                          kOtherViewer);
        }
    }
    SetConsoleCtrlHandler(&stop, TRUE);
    print_error("watching; Ctrl+C ends it");
    print_error("a program writes lines up to its CORVANE_LOG_LEVEL, which is 3 if it is not set: "
                "1 failures and choices, 3 start-up, instrumented methods and their code, "
                "4 modules, methods that are skipped, listings");
    Watch shown(options);
    const ULONGLONG end = GetTickCount64() + options.seconds * 1'000ULL;
    for (;;) {
        const ULONGLONG now = GetTickCount64();
        if (options.seconds != 0 && now >= end) {
            return kSuccess;
        }
        const DWORD left = options.seconds == 0 ? INFINITE : static_cast<DWORD>(end - now);
        if (const auto piece = output.next(stop_event(), left)) {
            shown.show(*piece);
        } else if (WaitForSingleObject(stop_event(), 0) == WAIT_OBJECT_0) {
            return kSuccess;
        }
    }
}

} // namespace

Work define_watch(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    app.add_option("--pid", options->process, "Of this process only")->type_name("N");
    app.add_option("--name", options->name, "Of processes of this executable only")
        ->type_name("EXE");
    app.add_option("--level", options->level, "Lines up to this level only, 1 to 4")
        ->type_name("N")
        ->check(CLI::Range(1, kHighestLevel));
    app.add_option("--seconds", options->seconds, "End after so many seconds")->type_name("N");
    app.add_flag("--all", options->shows_all, "Lines of other software as well");
    return [options](const Words&) { return watch(*options); };
}

} // namespace corvane::tool
