// Where the lines of the log go, and whether anybody reads them. A line costs tens of microseconds,
// most of them the system's, and a program may give millions. So nothing is sent that nobody would
// see: without a debugger of this process, a viewer of the whole system and a file, nothing is.
// Any thread may ask and send at any time. The file has a lock (log_file.h).
#pragma once

#include "base/log_settings.h"

#include <cstdint>

namespace corvane {

// The level up to which a channel writes that has no threshold of its own.
std::int32_t log_level() noexcept;

// Sets the level, and begins the file if one is asked for. By CClrProfiler::Initialize.
void begin_log(const LogSettings& settings);

// Before the library goes. At the end of the process other threads may have been ended with the
// file's lock: from then on nobody takes it.
void end_log_file(bool process_ends) noexcept;

// A viewer that comes or goes is noticed within 100 ms; a debugger, and the end of start-up, at
// once. In between the answer costs a few reads of memory.
bool log_is_read() noexcept;

// Sends the line to those who read it, and to none where nobody does.
void send_to_log(const wchar_t* line) noexcept;
void send_to_log(const char* line) noexcept;

// While it lives the process starts up, and its lines are sent in any case. A process that has not
// come to its start-up counts as starting. One at a time.
class StartUpLines {
public:
    StartUpLines() noexcept;
    StartUpLines(const StartUpLines&) = delete;
    StartUpLines& operator=(const StartUpLines&) = delete;
    ~StartUpLines();
};

} // namespace corvane
