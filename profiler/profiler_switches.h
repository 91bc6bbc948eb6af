// The switches of agent.config. CClrProfiler::Initialize reads them once, and they are fixed from
// then on; a change of the file takes a new process.
#pragma once

#include <functional>

namespace corvane {

struct ProfilerSwitches {
    bool inliningDisabled = false;            // by the application's entry or by "Inlining"
    bool transparencyFullTrust = false;       // "SecurityTransparencyInstrumentation" is "2"
    bool transparencyInstrumentation = false; // it is "2" or "1"
    bool logTraceIdEnabled = false;           // either of the next two
    bool insertLogTraceId = false;            // "InsertLogTraceIdIntoLogs" is "Enabled"
    bool addAttributeLogTraceId = false;      // "AddAttributeLogTraceId" is "Enabled"
};

// Whether agent.config has this value for this key of its settings.
using CheckKeyEntry = std::function<bool(const char* key, const char* value)>;

// Each by a look of its own. An application's entry that has disabled inlining stays in force.
void read_switches(const CheckKeyEntry& check_key, ProfilerSwitches& switches);

} // namespace corvane
