// What the tool's commands have in common. Each is a function that adds options to its part of the
// command line and returns the work to do once they are read. Options are UTF-8.
#pragma once

#include "tools/corvane/words.h"

#include <functional>
#include <initializer_list>
#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace corvane::tool {

// Gets the words behind "--", which are another program's, and returns the exit code. A command
// that takes no program gets none.
using Work = std::function<int(const Words& behind)>;

struct Command {
    const char* name;
    const char* words; // what its usage shows behind the name
    const char* description;
    Work (*define)(CLI::App& options);
    bool takes_program = false; // behind "--"
};

// The tool's own exit codes. Those of findings are in finding_kinds.h, and `run` has the program's.
// From 3 to 99 each command has a meaning of its own.
inline constexpr int kSuccess = 0;
inline constexpr int kMisused = 2;
inline constexpr int kNotControlled = 3; // a process that cannot be asked
inline constexpr int kOtherViewer = 3;
inline constexpr int kRefused = 4;  // by the process
inline constexpr int kNoAnswer = 5; // of the process, in time
inline constexpr int kAssemblyMissing = 3;
inline constexpr int kAssemblyNotManaged = 4;
inline constexpr int kAssemblyDamaged = 5;
inline constexpr int kRuntimeMissing = 6;
inline constexpr int kConfigMissing = 7;
inline constexpr int kFailed = 100;
inline constexpr std::initializer_list<int> kExitCodes = {
    kSuccess,         kMisused,        kNotControlled,   kOtherViewer,
    kRefused,         kNoAnswer,       kAssemblyMissing, kAssemblyNotManaged,
    kAssemblyDamaged, kRuntimeMissing, kConfigMissing,   kFailed};

// Ends the command with a line on standard error.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& line, int exit_code = kFailed)
        : std::runtime_error(line), code(exit_code) {}

    const int code;
};

Work define_check(CLI::App& options);
Work define_explain(CLI::App& options);
Work define_flush(CLI::App& options);
Work define_install(CLI::App& options);
Work define_list(CLI::App& options);
Work define_register(CLI::App& options);
Work define_run(CLI::App& options);
Work define_sample(CLI::App& options);
Work define_status(CLI::App& options);
Work define_summary(CLI::App& options);
Work define_uninstall(CLI::App& options);
Work define_unregister(CLI::App& options);
Work define_watch(CLI::App& options);

} // namespace corvane::tool
