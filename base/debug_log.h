// The profiler's only diagnostic output: levelled single lines to the debugger output.
// A line is the thread's id, a blank, the channel's prefix and the message. Any thread may log at
// any time: channels do not change after construction, and every call formats into its own stack
// buffer. A message of a suppressed level costs one comparison. Where nobody reads the log none is
// formatted (log_output.h).
#pragma once

#include "base/log_output.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace corvane {

// Level 1: failures and milestones. 3: start-up progress. 4: detail, not written by default. A
// channel without a threshold of its own has that of the process (log_output.h).
using LogThreshold = std::optional<std::int32_t>;

// A formatted line is cut at this many characters, thread id and prefix included.
inline constexpr std::size_t kMaxLogLine = 510;

// Messages that cannot be written for want of memory are dropped.
class DebugLog {
public:
    constexpr DebugLog() noexcept = default;

    // `prefix` is part of every format: a "%" in it is a conversion. Who builds one from names
    // that a program chose passes them through as_format_text.
    explicit DebugLog(std::wstring prefix, LogThreshold threshold = {}) noexcept
        : prefix_(std::move(prefix)), threshold_(threshold) {}

    // printf formatting by the rules of the Microsoft runtime: %s takes a wide string.
    void log(std::int32_t level, const wchar_t* format, ...) const noexcept;

    // Whether a line of the level would be seen. For callers to whom even making the arguments is
    // too much when nobody reads them.
    [[nodiscard]] bool writes(std::int32_t level) const noexcept {
        return level <= threshold_.value_or(log_level()) && log_is_read();
    }

private:
    std::wstring prefix_;
    LogThreshold threshold_;
};

// The same for narrow text, which the listing of method bodies is made of.
class NarrowDebugLog {
public:
    explicit NarrowDebugLog(std::string prefix, LogThreshold threshold = {}) noexcept
        : prefix_(std::move(prefix)), threshold_(threshold) {}

    // %s takes a narrow string.
    void log_narrow(std::int32_t level, const char* format, ...) const noexcept;

    // As above.
    [[nodiscard]] bool writes(std::int32_t level) const noexcept {
        return level <= threshold_.value_or(log_level()) && log_is_read();
    }

    // The message as it stands and of any length, at this level.
    static constexpr std::int32_t kLineLevel = 4;
    void log_line_narrow(std::string_view message) const noexcept;

private:
    std::string prefix_;
    LogThreshold threshold_;
};

// The channel of whoever has none of its own: no prefix, default threshold.
extern constinit DebugLog default_log;

// Text that stands for itself in a format and so in a prefix: every percent sign doubled.
std::wstring as_format_text(std::wstring_view text);

// "[tag]scope:name() : "
std::wstring make_prefix(std::wstring_view tag, std::wstring_view scope, std::wstring_view name);
std::string make_prefix(std::string_view tag, std::string_view scope, std::string_view name);

} // namespace corvane
