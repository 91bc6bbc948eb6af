#include "tools/corvane/rules.h"

#include "selection/method_patterns.h"
#include "selection/target_methods.h"
#include "tools/corvane/utf8.h"

#include <boost/algorithm/string/predicate.hpp>

#include <algorithm>
#include <vector>

namespace corvane::tool {
namespace {

const LogSink kSilent = [](int, const wchar_t*) {};

std::string attribute(const AgentConfig& entry, const char* name) {
    return entry.get(std::string("<xmlattr>.") + name, std::string());
}

// The first entry of a name decides, so the others are not in force.
std::string entries_text(const AgentConfig& config, const char* section, const char* title) {
    std::string text;
    const auto entries =
        config.get_child_optional(std::string("configuration.instrumentation.") + section);
    std::vector<std::string> seen;
    for (const auto& [ignored, entry] : entries ? *entries : AgentConfig()) {
        const auto name = entry.get_child_optional("<xmlattr>.name");
        if (!name) {
            continue;
        }
        const bool is_repeated = std::ranges::any_of(
            seen, [&](const std::string& other) { return boost::iequals(other, name->data()); });
        seen.push_back(name->data());
        text += "  " + name->data() +
                (attribute(entry, "corvane") == "Disabled" ? ": disabled" : ": enabled") +
                (attribute(entry, "inlining") == "Disabled" ? ", without inlining" : "") +
                (is_repeated ? " (an entry before decides)" : "") + "\r\n";
    }
    return title + std::string(":\r\n") + (text.empty() ? "  none\r\n" : text);
}

std::string settings_text(const AgentConfig& config) {
    std::string text;
    const auto settings = config.get_child_optional("configuration.appSettings");
    for (const auto& [element, entry] : settings ? *settings : AgentConfig()) {
        if (boost::iequals(element, "add")) {
            text += "  " + attribute(entry, "key") + "=" + attribute(entry, "value") + "\r\n";
        }
    }
    return "Settings:\r\n" + (text.empty() ? "  none\r\n" : text);
}

std::string patterns_text(std::wstring_view patterns) {
    std::string text;
    MethodPatterns read;
    read.append(patterns, [&text](std::wstring_view pattern, const wchar_t* reason) {
        text += "  left out: " + to_utf8(pattern) + " (" + to_utf8(reason) + ")\r\n";
    });
    for (const std::wstring& pattern : read.never_matched()) {
        text += "  " + to_utf8(pattern) + "\r\n";
    }
    return "Patterns of CORVANE_METHODS:\r\n" + (text.empty() ? "  none\r\n" : text);
}

} // namespace

std::string rules_text(const AgentConfig* config, std::wstring_view patterns) {
    const AgentConfig none;
    const AgentConfig& rules = config == nullptr ? none : *config;
    LogTraceIdSwitches switches;
    switches.insert_id = check_key(rules, "InsertLogTraceIdIntoLogs", "Enabled", kSilent);
    switches.add_attribute = check_key(rules, "AddAttributeLogTraceId", "Enabled", kSilent);
    switches.enabled = switches.insert_id || switches.add_attribute;
    build_target_methods(switches);
    std::string text =
        entries_text(rules, "applications", "Executables") +
        entries_text(rules, "applicationPools", "Application pools") + settings_text(rules) +
        patterns_text(patterns) +
        "Methods that are always chosen:\r\n"
        "  every static Main, and statements outside of a type (strict IL)\r\n"
        "  every method with the attribute Corvane.Instrumentation.TraceAttribute\r\n";
    for (const TargetMethod& method : target_methods) {
        text += "  " + to_utf8(method.name) +
                (method.parameter_types ? " (one of its overloads)" : "") + "\r\n";
    }
    return text;
}

} // namespace corvane::tool
