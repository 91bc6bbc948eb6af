// The program that somebody names, as the system would start it.
#pragma once

#include "tools/corvane/environment.h"
#include "tools/corvane/words.h"

#include <filesystem>
#include <string>

namespace corvane::tool {

struct Program {
    std::filesystem::path file;     // full; empty if there is none
    Words words;                    // its own command line, with its name
    std::filesystem::path assembly; // what dotnet.exe is given to run; empty otherwise
};

// A name without a folder is looked for as a shell does, with these variables; ".exe" may be left
// out, and a DLL is run by dotnet.exe.
Program find_program(const Words& words, const Environment& environment);

std::filesystem::path full_path(const std::wstring& path);

// The variables of this process.
Environment own_environment();

// What the profiler will take for the name of a program's executable, in the system's code page: it
// sees a path only up to the length of the classic buffer.
std::string gate_name(const std::filesystem::path& file);

// Whether the system's code page has every character.
std::optional<std::string> in_code_page(const std::wstring& text);

} // namespace corvane::tool
