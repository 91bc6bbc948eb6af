// What the profiler would do to the methods of an assembly, and why: its own decisions and its own
// rewriting, run over the assembly's file. One thread; one assembly at a time in a process, because
// the profiler's own settings are the process's.
#pragma once

#include "selection/choice.h"
#include "selection/method_patterns.h"
#include "selection/target_methods.h"
#include "tools/corvane/offline/offline_runtime.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace corvane::tool {

enum class Fate { kNotChosen, kInstrumented, kLeft };

struct MethodFate {
    Rule rule = Rule::kNone; // by which it is chosen, also where something keeps it from that
    Fate fate = Fate::kNotChosen;
    std::wstring reason{}; // for kLeft, in the words of the log
};

struct ExplainSettings {
    SelectionSettings selection;
    LogTraceIdSwitches log_trace_ids;
    std::wstring patterns; // as in CORVANE_METHODS
};

enum class OpenResult { kOpened, kNotManaged, kDamaged, kNoRuntime };

// What counts as loaded besides the assembly.
struct Neighbours {
    std::size_t beside = 0;
    std::size_t of_runtime = 0;
};

class Explanation {
public:
    using Complaint = MethodPatterns::Report;

    // Puts the settings into force. Patterns that are left out are reported.
    Explanation(const ExplainSettings& settings, const Complaint& complaint);
    Explanation(const Explanation&) = delete;
    Explanation& operator=(const Explanation&) = delete;
    ~Explanation();

    // Once. The folder is that of the runtime's library (runtime_folder.h).
    OpenResult open(const std::filesystem::path& assembly, std::vector<std::uint8_t> bytes,
                    const std::filesystem::path& runtime_folder);

    // What a program would find beside the assembly and in the runtime counts as loaded.
    Neighbours take_neighbours(const std::filesystem::path& assembly,
                               const std::filesystem::path& runtime_folder);

    [[nodiscard]] OfflineRuntime& runtime() { return *runtime_; }

    // Of one of the runtime's functions, once for each. An instrumented one has a new body then.
    MethodFate decide(FunctionID function);

private:
    SelectionSettings selection_;
    ComPtr<IMetaDataDispenserEx> engine_;
    std::unique_ptr<OfflineRuntime> runtime_;
};

} // namespace corvane::tool
