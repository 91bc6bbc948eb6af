#include "profiler/process_gate.h"

#include "profiler/wide_text.h"

#include <boost/algorithm/string/predicate.hpp>

#include <exception>

namespace corvane {
namespace {

bool is_disabled(const AgentConfig& element, const char* attribute) {
    const auto value = element.get_child_optional(attribute);
    return value && value->data() == "Disabled";
}

// The first entry of the section whose name satisfies `matches`, or null.
template <class Matches>
const AgentConfig* find_entry(const AgentConfig& section, const Matches& matches,
                              const wchar_t* missing_name, const LogSink& log) {
    for (const auto& child : section) {
        const auto name = child.second.get_child_optional("<xmlattr>.name");
        if (!name) {
            log(1, missing_name);
        } else if (matches(name->data())) {
            return &child.second;
        }
    }
    return nullptr;
}

// The argument after the last "-ap", empty without one; nothing when "-ap" ends the command line.
std::optional<std::wstring> pool_name(const std::vector<std::wstring>& arguments) {
    std::wstring pool;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == L"-ap") {
            if (i + 1 == arguments.size()) {
                return std::nullopt;
            }
            pool = arguments[i + 1];
        }
    }
    return pool;
}

GateDecision decide_iis_worker(const ProcessFacts& process, const AgentConfig* config,
                               const LogSink& log) {
    if (config == nullptr) {
        log(1, L"CClrProfiler::ShouldTrace(): could not load agent.config.");
        return {GateVerdict::kTrace};
    }
    if (!process.arguments) {
        return {GateVerdict::kTrace};
    }
    const auto pool = pool_name(*process.arguments);
    if (!pool) {
        return {GateVerdict::kTrace};
    }
    try {
        const auto pools =
            config->get_child_optional("configuration.instrumentation.applicationPools");
        if (!pools) {
            log(1, L"CClrProfiler::ShouldTrace(): Could not find "
                   L"configuration.instrumentation.applicationPools elements.");
            return {GateVerdict::kTrace};
        }
        const AgentConfig* const entry = find_entry(
            *pools,
            [&](const std::string& name) { return equals_ignore_case(widen_utf8(name), *pool); },
            L"CClrProfiler::ShouldTrace(): Error "
            L"configuration.instrumentation.applicationPools.applicationPool is missing name "
            L"attribute.",
            log);
        if (entry == nullptr) {
            return {GateVerdict::kAskPoolDefault};
        }
        return {is_disabled(*entry, "<xmlattr>.corvane") ? GateVerdict::kRefuse
                                                         : GateVerdict::kTrace};
    } catch (const std::exception&) {
        log(1, L"CClrProfiler::ShouldTrace(): Could not find "
               L"configuration.instrumentation.applicationPools.applicationPool elements.");
        return {GateVerdict::kTrace};
    }
}

// No file can have the name "*": the entry stands for all executables that none before it names.
bool names_executable(const std::string& name, const std::string& executable) {
    return name == "*" || boost::iequals(name, executable);
}

GateDecision decide_executable(const ProcessFacts& process, const AgentConfig* config,
                               const LogSink& log) {
    if (config == nullptr) {
        log(1, L"CClrProfiler::ShouldTrace(): could not load agent.config.");
        return {GateVerdict::kRefuse};
    }
    try {
        const auto applications =
            config->get_child_optional("configuration.instrumentation.applications");
        if (!applications) {
            log(1, L"CClrProfiler::ShouldTrace(): Could not find "
                   L"configuration.applications.application elements.");
            return {GateVerdict::kRefuse};
        }
        const AgentConfig* const entry = find_entry(
            *applications,
            [&](const std::string& name) {
                return names_executable(name, process.executable_name);
            },
            L"CClrProfiler::ShouldTrace(): Error configuration.applications.application is missing "
            L"name attribute.",
            log);
        if (entry == nullptr || is_disabled(*entry, "<xmlattr>.corvane")) {
            return {GateVerdict::kRefuse};
        }
        return {GateVerdict::kTrace, is_disabled(*entry, "<xmlattr>.inlining")};
    } catch (const std::exception&) {
        log(1, L"CClrProfiler::ShouldTrace(): Error CORVANE_HOME_APM_DOTNET and parsing "
               L"configuration.applications.");
        return {GateVerdict::kRefuse};
    }
}

} // namespace

bool is_iis_worker(const ProcessFacts& process) {
    return process.app_type == "TYPE_IIS" && boost::iequals(process.executable_name, "w3wp.exe");
}

GateDecision decide_trace(const ProcessFacts& process, const AgentConfig* config,
                          const LogSink& log) {
    return is_iis_worker(process) ? decide_iis_worker(process, config, log)
                                  : decide_executable(process, config, log);
}

} // namespace corvane
