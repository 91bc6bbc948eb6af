#include "tools/corvane/config_findings.h"

#include "tools/corvane/near_names.h"

#include <boost/algorithm/string/predicate.hpp>

namespace corvane::tool {
namespace {

const LogSink kSilent = [](int, const wchar_t*) {};

// Only "Disabled" disables, whatever else somebody writes.
void find_odd_value(const CheckFacts& facts, Findings& found) {
    const auto entries =
        facts.config
            ? facts.config->get_child_optional("configuration.instrumentation.applications")
            : boost::none;
    if (!entries) {
        return; // a worker's
    }
    for (const auto& [ignored, application] : *entries) {
        const auto name = application.get_child_optional("<xmlattr>.name");
        if (name && boost::iequals(name->data(), facts.program->process.executable_name)) {
            const std::string value = application.get("<xmlattr>.corvane", "Enabled");
            if (value != "Enabled") {
                add_finding(found, "config-value",
                            "corvane=\"" + value +
                                "\" counts as enabled: only \"Disabled\", exactly so, disables",
                            "write corvane=\"Enabled\" or corvane=\"Disabled\"");
            }
            return;
        }
    }
}

void explain_worker(const CheckFacts& facts, GateVerdict verdict, Findings& found) {
    if (verdict == GateVerdict::kRefuse ||
        check_key(*facts.config, "Corvane", "Disabled", kSilent)) {
        add_finding(found, "config-disabled",
                    "agent.config in " + *facts.home + " disables " + facts.program->name,
                    verdict == GateVerdict::kRefuse
                        ? "write corvane=\"Enabled\" to the entry of the application pool"
                        : "list the pool with corvane=\"Enabled\", for the setting Corvane is "
                          "Disabled");
    }
}

void explain_executable(const CheckFacts& facts, Findings& found) {
    const std::string& executable = facts.program->process.executable_name;
    const std::string entry = "<application name=\"" + executable + "\" corvane=\"Enabled\"/>";
    const std::string file = *facts.home + "\\agent.config";
    const AgentConfig* element = &*facts.config;
    for (const char* const name : {"configuration", "instrumentation", "applications"}) {
        const auto child = element->get_child_optional(name);
        if (!child) {
            std::vector<std::string> names;
            for (const auto& [other, ignored] : *element) {
                names.push_back(other);
            }
            const auto near = near_name(name, names);
            add_finding(found, near ? "config-near-miss" : "config-section",
                        file + " has no element " + name +
                            (near ? ", but one called " + *near : std::string()),
                        near ? "write it as " + std::string(name)
                             : "add the section configuration/instrumentation/applications with " +
                                   entry);
            return;
        }
        element = &*child;
    }
    std::vector<std::string> names;
    for (const auto& [ignored, application] : *element) {
        const auto name = application.get_child_optional("<xmlattr>.name");
        if (name && (boost::iequals(name->data(), executable) || name->data() == "*")) {
            add_finding(found, "config-disabled",
                        file + " has corvane=\"Disabled\" for " + executable,
                        "write corvane=\"Enabled\"");
            return;
        }
        if (name) {
            names.push_back(name->data());
        }
    }
    if (const auto near = near_name(executable, names)) {
        add_finding(found, "config-near-miss",
                    file + " does not list " + executable + ", but \"" + *near + '"',
                    "write the name of the running file, \"" + executable + '"');
    } else {
        add_finding(found, "config-entry", file + " does not list " + executable, "add " + entry);
    }
}

// What the gate of the profiler will decide.
void find_in_gate(const CheckFacts& facts, Findings& found) {
    if (!facts.program) {
        return;
    }
    const GateDecision decision =
        decide_trace(facts.program->process, facts.config ? &*facts.config : nullptr, kSilent);
    if (decision.verdict == GateVerdict::kTrace) {
        find_odd_value(facts, found);
    } else if (is_worker(facts)) {
        explain_worker(facts, decision.verdict, found);
    } else {
        explain_executable(facts, found);
    }
}

} // namespace

void find_in_config(const CheckFacts& facts, Findings& found) {
    if (!facts.home) {
        add_finding(found, "home-characters",
                    "the value of CORVANE_HOME_APM_DOTNET has characters that the system's code "
                    "page has not",
                    "use a folder whose name has only characters of the code page");
    } else if (is_worker(facts)) {
        find_in_gate(facts, found); // a worker is profiled without a configuration
    } else if (facts.home->empty()) {
        add_finding(found, "home-unset",
                    "CORVANE_HOME_APM_DOTNET is not set, so there is no agent.config",
                    "set it to the folder of agent.config");
    } else if (!facts.config_exists) {
        add_finding(found, "config-missing", "there is no agent.config in " + *facts.home,
                    "write one, or correct CORVANE_HOME_APM_DOTNET");
    } else if (!facts.config) {
        add_finding(found, "config-unreadable",
                    "agent.config in " + *facts.home +
                        " cannot be read: it is no XML in UTF-8, nests too deep, or this account "
                        "may not read it",
                    "correct the file");
    } else {
        find_in_gate(facts, found);
    }
}

} // namespace corvane::tool
