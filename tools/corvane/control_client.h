// Asks a process that runs under the profiler, through the pipe that CORVANE_CONTROL=1 makes its
// managed library open.
#pragma once

#include <functional>
#include <map>
#include <string>

namespace corvane::tool {

using Parts = std::map<std::string, std::string>; // by name; bytes

// What a process answers, in parts. `wait` is told how many seconds it will still take. Throws
// Failure with the cause and the cure, also if nothing comes for `patience` seconds.
Parts ask(unsigned process, const std::string& request, unsigned patience,
          const std::function<void(unsigned seconds)>& wait);

} // namespace corvane::tool
