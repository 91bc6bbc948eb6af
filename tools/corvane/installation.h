// The files that come with the tool, beside it or where the build leaves them.
#pragma once

#include <string>

namespace corvane::tool {

// Full paths; empty where there is no such file.
struct Installation {
    std::wstring folder; // the tool's own
    std::wstring profiler;
    std::wstring library;
};

Installation find_installation();

} // namespace corvane::tool
