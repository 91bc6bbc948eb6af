// What keeps a program from being profiled: a function that finds it in the facts. Pure.
#pragma once

#include "profiler/agent_config.h"
#include "profiler/process_gate.h"
#include "tools/corvane/environment.h"
#include "tools/corvane/finding_kinds.h"
#include "tools/corvane/image_file.h"
#include "tools/corvane/runtime_config.h"

#include <optional>
#include <string>
#include <vector>

namespace corvane::tool {

// A file as it is found.
struct FileFacts {
    std::string path;
    bool exists = false;
    bool is_readable = false;
    std::optional<Image> image;
    std::string version;          // of its resources; empty if there is none
    bool is_for_standard = false; // built for .NET Standard, which runtimes before .NET 8 have
    bool is_full = true;          // the path, as it was asked for
};

struct ProgramFacts {
    std::string name; // as it was asked for
    FileFacts file;
    ProcessFacts process; // for the gate
    bool is_dotnet = false;
    std::optional<FileFacts> assembly; // the managed one that the program runs, if it is known
    std::optional<RuntimeConfig> runtime_config;
    FileFacts own_library;           // kite.managed beside it
    bool has_shared_library = false; // in the global assembly cache
};

struct CheckFacts {
    Environment variables;
    std::optional<ProgramFacts> program;
    bool starts_others = false;            // whose kind nobody knows before
    std::string own_profiler;              // the DLL that came with it; empty if it is missing
    std::optional<std::string> registered; // the path in the registry, if the class is there
    FileFacts profiler;                    // the one that the variables or the registry lead to
    std::optional<std::string>
        home; // the value of the variable in the code page; none: it has other characters
    bool is_home_full = true;
    std::vector<std::string> home_files; // names
    bool config_exists = false;
    std::optional<AgentConfig> config;
    std::vector<FileFacts> hooks; // the files in DOTNET_STARTUP_HOOKS
    bool is_log_read = true;
};

// The file that the variables name as the profiler, of those that the program reads. Empty: they
// name none, and the registry does.
std::wstring named_profiler(const CheckFacts& facts);

// An IIS worker, which is profiled without being listed.
bool is_worker(const CheckFacts& facts);

// In the order in which they take effect. The first reason decides.
Findings find_problems(const CheckFacts& facts);

} // namespace corvane::tool
