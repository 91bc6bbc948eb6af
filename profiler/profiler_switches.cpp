#include "profiler/profiler_switches.h"

namespace corvane {

void read_switches(const CheckKeyEntry& check_key, ProfilerSwitches& switches) {
    if (!switches.inliningDisabled) {
        switches.inliningDisabled = check_key("Inlining", "Disabled");
    }
    switches.transparencyFullTrust = check_key("SecurityTransparencyInstrumentation", "2");
    switches.transparencyInstrumentation =
        switches.transparencyFullTrust || check_key("SecurityTransparencyInstrumentation", "1");
    switches.insertLogTraceId = check_key("InsertLogTraceIdIntoLogs", "Enabled");
    switches.addAttributeLogTraceId = check_key("AddAttributeLogTraceId", "Enabled");
    switches.logTraceIdEnabled = switches.insertLogTraceId || switches.addAttributeLogTraceId;
}

} // namespace corvane
