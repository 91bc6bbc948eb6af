// What may keep a program from being profiled: a list, and a pure function that finds the entries
// that apply to the facts. Each has an exit code and a heading of its own name in
// docs/troubleshooting.md.
#pragma once

#include "profiler/agent_config.h"
#include "profiler/process_gate.h"
#include "tools/corvane/environment.h"
#include "tools/corvane/image_file.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace corvane::tool {

struct FindingKind {
    const char* id;
    int exit_code;
    bool is_reason; // else it is a remark, and the program is profiled all the same
};

std::span<const FindingKind> finding_kinds();

struct Finding {
    const FindingKind* kind;
    std::string text;
    std::string cure;
};

// A file as it is found.
struct FileFacts {
    std::string path;
    bool exists = false;
    bool is_readable = false;
    std::optional<Image> image;
    std::string version; // of its resources; empty if there is none
};

struct ProgramFacts {
    std::string name; // as it was asked for
    FileFacts file;
    ProcessFacts process; // for the gate
    bool is_dotnet = false;
    std::optional<FileFacts> assembly; // the managed one that the program runs, if it is known
    std::optional<std::string> runtime_config; // its JSON text
    bool has_own_library = false;              // kite.managed beside it
    bool has_shared_library = false;           // in the global assembly cache
};

struct CheckFacts {
    Environment variables;
    std::optional<ProgramFacts> program;
    bool starts_others = false;            // whose kind nobody knows before
    std::string version;                   // of this tool
    std::string own_profiler;              // the DLL that came with it; empty if it is missing
    std::optional<std::string> registered; // the path in the registry, if the class is there
    FileFacts profiler;                    // the one that the variables or the registry lead to
    std::optional<std::string>
        home; // the value of the variable in the code page; none: it has other characters
    bool config_exists = false;
    std::optional<AgentConfig> config;
    std::vector<FileFacts> hooks; // the files in DOTNET_STARTUP_HOOKS
    bool is_log_read = true;
};

// In the order in which they take effect. The first reason decides.
std::vector<Finding> find_problems(const CheckFacts& facts);

// Of a service or a pool that the machine does not have.
Finding missing_on_machine(bool is_service, const std::string& name);

// Where the documentation speaks of it.
std::string page_of(const FindingKind& kind);

const Finding* first_reason(const std::vector<Finding>& findings);

} // namespace corvane::tool
