// What the environment says about the log, and the form of a line in the log's file. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// As they are set.
struct LogVariables {
    std::optional<std::wstring> file;  // CORVANE_LOG_FILE
    std::optional<std::wstring> level; // CORVANE_LOG_LEVEL
    std::optional<std::wstring> limit; // CORVANE_LOG_LIMIT_MB
};

struct LogSettings {
    std::wstring file; // empty: none
    std::uint64_t limit = 0;
    std::int32_t level = 0;
    std::vector<std::wstring> complaints; // about values that are not used
};

// "{pid}" in the file's name stands for the process.
LogSettings read_log_settings(const LogVariables& variables, std::uint32_t process);

// UTF-8, with a line end. A line that holds line ends continues behind blanks, so that only the
// start of a record stands at the start of a line. Half a surrogate pair becomes U+FFFD.
std::string log_record(std::wstring_view start, std::wstring_view line);

} // namespace corvane
