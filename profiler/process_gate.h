// The process gate: does the configuration select this process for profiling?
// A pure function of the process (ProcessFacts) and of the configuration. The profiler reads both
// once, on the thread that initialises it.
#pragma once

#include "base/log_sink.h"
#include "profiler/agent_config.h"

#include <optional>
#include <string>
#include <vector>

namespace corvane {

struct ProcessFacts {
    std::string executable_name;         // the main module's file name, in the system's code page
    std::optional<std::string> app_type; // the variable APP_TYPE
    std::optional<std::vector<std::wstring>> arguments; // none: the command line cannot be split
};

enum class GateVerdict {
    kTrace,
    kRefuse,
    // An IIS worker whose pool has no entry of its own: the appSettings switch "Corvane" decides.
    kAskPoolDefault,
};

struct GateDecision {
    GateVerdict verdict;
    bool disable_inlining = false; // the application's entry asks for it
};

// IIS workers go by their application pool, every other executable by its file name.
bool is_iis_worker(const ProcessFacts& process);

// `config` is null when it could not be loaded. An IIS worker is then traced and any other process
// is not: a worker has to be excluded by name, an executable has to be asked for by name.
GateDecision decide_trace(const ProcessFacts& process, const AgentConfig* config,
                          const LogSink& log);

} // namespace corvane
