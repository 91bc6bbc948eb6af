// LogSink: the log of a decision that runs on any platform.
// The profiler binds it to its DebugLog; tests collect the lines.
#pragma once

#include <functional>

namespace corvane {

// `level` as in DebugLog: 1 failures and milestones, 3 progress, 4 detail.
using LogSink = std::function<void(int level, const wchar_t* message)>;

} // namespace corvane
