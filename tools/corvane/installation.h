// The files that come with the tool, beside it or where the build leaves them.
#pragma once

#include <filesystem>
#include <string>

namespace corvane::tool {

// This program's.
std::filesystem::path own_file();

// Full paths; empty where there is no such file.
struct Installation {
    std::wstring folder; // the tool's own
    std::wstring profiler;
    std::wstring library;
    std::wstring standard_library; // its build for .NET Standard
};

Installation find_installation();

} // namespace corvane::tool
