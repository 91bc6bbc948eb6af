#include "tools/corvane/runtime_config.h"

#include "tools/corvane/utf8.h"

#include <boost/algorithm/string/predicate.hpp>
#include <nlohmann/json.hpp>

#include <cstdlib>

namespace corvane::tool {
namespace {

// What a path leads to in an object; null where there is nothing.
nlohmann::json value_at(const nlohmann::json& json, const std::string& path) {
    const nlohmann::json::json_pointer pointer(path);
    return json.contains(pointer) ? json.at(pointer) : nlohmann::json();
}

// Empty for anything but a text.
std::string text_at(const nlohmann::json& json, const std::string& path) {
    const nlohmann::json value = value_at(json, path);
    return value.is_string() ? value.get<std::string>() : std::string();
}

} // namespace

RuntimeConfig read_runtime_config(std::string_view json) {
    const nlohmann::json whole = nlohmann::json::parse(json, nullptr, false, true);
    const nlohmann::json options = value_at(whole, "/runtimeOptions");
    RuntimeConfig config;
    for (const char* const framework : {"/framework", "/frameworks/0", "/includedFrameworks/0"}) {
        if (config.version.empty()) {
            config.version = text_at(options, std::string(framework) + "/version");
        }
    }
    config.roll_forward = text_at(options, "/rollForward");
    const nlohmann::json hooks =
        value_at(options, "/configProperties/System.StartupHookProvider.IsSupported");
    config.has_hooks = hooks != false && hooks != "false";
    return config;
}

bool runs_before_net_8(const RuntimeConfig& config, const Environment& variables) {
    const std::string by_variable = to_utf8(value_of(variables, L"DOTNET_ROLL_FORWARD"));
    const std::string& policy = by_variable.empty() ? config.roll_forward : by_variable;
    return !config.version.empty() && !boost::iends_with(policy, "Major") &&
           std::atoi(config.version.c_str()) < 8;
}

} // namespace corvane::tool
