// What may keep a program from being profiled: a list, and a pure function that finds the entries
// that apply to the facts. Each has an exit code and a heading of its own name in
// docs/troubleshooting.md.
#pragma once

#include "profiler/agent_config.h"
#include "profiler/process_gate.h"
#include "tools/corvane/command.h"
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

// A reason that ends a command.
class FailedFinding : public Failure {
public:
    explicit FailedFinding(Finding reason);

    const Finding finding;
};

// A file as it is found.
struct FileFacts {
    std::string path;
    bool exists = false;
    bool is_readable = false;
    std::optional<Image> image;
    std::string version;          // of its resources; empty if there is none
    bool is_for_standard = false; // built for .NET Standard, which runtimes before .NET 8 have
};

struct ProgramFacts {
    std::string name; // as it was asked for
    FileFacts file;
    ProcessFacts process; // for the gate
    bool is_dotnet = false;
    std::optional<FileFacts> assembly; // the managed one that the program runs, if it is known
    std::optional<std::string> runtime_config; // its JSON text
    FileFacts own_library;                     // kite.managed beside it
    bool has_shared_library = false;           // in the global assembly cache
};

// Whether the program runs on a .NET before 8, by its runtimeconfig.json and the variables.
bool runs_before_net_8(const ProgramFacts& program, const Environment& variables);

struct CheckFacts {
    Environment variables;
    std::optional<ProgramFacts> program;
    bool starts_others = false;            // whose kind nobody knows before
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

// The file that the variables name as the profiler, of those that the program reads. Empty: they
// name none, and the registry does.
std::wstring named_profiler(const CheckFacts& facts);

// In the order in which they take effect. The first reason decides.
std::vector<Finding> find_problems(const CheckFacts& facts);

// Of a service or a pool that the machine does not have.
Finding missing_on_machine(bool is_service, const std::string& name);

// What this account may not read, and why.
Finding unreadable_registry(const std::string& key, const std::string& reason);
Finding unreadable_pools(const std::string& file, const std::string& reason);

// Where the documentation speaks of it.
std::string page_of(const FindingKind& kind);

const Finding* first_reason(const std::vector<Finding>& findings);

} // namespace corvane::tool
