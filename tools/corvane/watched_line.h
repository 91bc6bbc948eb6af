// What a line of the profiler's log is, by its text: the debugger output does not say. Pure.
#pragma once

#include <string>
#include <string_view>

namespace corvane::tool {

// Whether it begins as the profiler's lines do: with the number of a thread. The dump of a body has
// none.
bool is_profilers_line(std::string_view line);

// The level from which it is written. What is not known has level 1: nothing is hidden that could
// be a failure.
int level_of(std::string_view line);

enum class Weight { kPlain, kDetail, kLeft, kFailure };
Weight weight_of(std::string_view line);

// The text behind what stands in front of it, its further lines indented.
std::string watched_text(std::string_view front, std::string_view line);

} // namespace corvane::tool
