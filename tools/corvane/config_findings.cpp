#include "tools/corvane/config_findings.h"

#include "tools/corvane/near_names.h"
#include "tools/corvane/utf8.h"

#include <boost/algorithm/string/predicate.hpp>

#include <algorithm>

namespace corvane::tool {
namespace {

const LogSink kSilent = [](int, const wchar_t*) {};

std::vector<std::string> names_of(const AgentConfig& entries) {
    std::vector<std::string> names;
    for (const auto& [ignored, entry] : entries) {
        if (const auto name = entry.get_child_optional("<xmlattr>.name")) {
            names.push_back(name->data());
        }
    }
    return names;
}

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

// A pool that has no entry goes by a setting. Its name is behind the last "-ap".
std::string cure_for_unlisted(const CheckFacts& facts) {
    const std::vector<std::wstring>& arguments = *facts.program->process.arguments;
    const auto mark = std::find(arguments.rbegin(), arguments.rend(), L"-ap");
    const std::string pool =
        mark == arguments.rend() || mark == arguments.rbegin() ? "" : to_utf8(*(mark - 1));
    const auto near = near_name(
        pool, names_of(facts.config->get_child("configuration.instrumentation.applicationPools")));
    return near ? "write the pool's name, \"" + pool + "\", for the entry's, \"" + *near + '"'
                : "list the pool with corvane=\"Enabled\", for the setting Corvane is Disabled";
}

void explain_worker(const CheckFacts& facts, GateVerdict verdict, Findings& found) {
    const bool has_entry = verdict == GateVerdict::kRefuse;
    if (has_entry || check_key(*facts.config, "Corvane", "Disabled", kSilent)) {
        add_finding(found, "config-disabled",
                    "agent.config in " + *facts.home + " disables " + facts.program->name,
                    has_entry ? "write corvane=\"Enabled\" to the entry of the application pool"
                              : cure_for_unlisted(facts));
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
    const std::vector<std::string> names = names_of(*element);
    const bool is_listed = std::ranges::any_of(names, [&](const std::string& name) {
        return name == "*" || boost::iequals(name, executable);
    });
    if (is_listed) {
        add_finding(found, "config-disabled", file + " has corvane=\"Disabled\" for " + executable,
                    "write corvane=\"Enabled\"");
    } else if (const auto near = near_name(executable, names)) {
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
        std::vector<std::string> names;
        for (const auto& [name, ignored] : facts.variables) {
            names.push_back(to_utf8(name));
        }
        const auto near = near_name(kHomeVariable, names);
        add_finding(found, "home-unset",
                    "CORVANE_HOME_APM_DOTNET is not set, so there is no agent.config",
                    near ? "write " + *near + " as CORVANE_HOME_APM_DOTNET"
                         : "set it to the folder of agent.config");
    } else if (!facts.is_home_full) {
        add_finding(found, "config-missing",
                    "CORVANE_HOME_APM_DOTNET is \"" + *facts.home +
                        "\", which is no full path: the folder in which the program starts "
                        "decides which one that is",
                    "set it to the full path of the folder of agent.config");
    } else if (!facts.config_exists) {
        const auto near = near_name("agent.config", facts.home_files);
        add_finding(found, "config-missing", "there is no agent.config in " + *facts.home,
                    near ? "rename " + *near + ", which is there, to agent.config"
                         : "write one, or correct CORVANE_HOME_APM_DOTNET");
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
