// corvane list
#include "tools/corvane/check_facts.h"
#include "tools/corvane/command.h"
#include "tools/corvane/console.h"
#include "tools/corvane/rules.h"
#include "tools/corvane/utf8.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace corvane::tool {
Work define_list(CLI::App& app) {
    const auto folder = std::make_shared<std::string>();
    app.add_option(
           "--config", *folder,
           "The folder of agent.config; without it the one that CORVANE_HOME_APM_DOTNET names")
        ->type_name("DIR");
    return [folder](const Words&) {
        Environment variables = own_environment();
        if (!folder->empty()) {
            variables[L"CORVANE_HOME_APM_DOTNET"] = full_path(to_wide(*folder)).wstring();
        }
        const CheckFacts facts = read_check_facts(variables, find_installation(), std::nullopt);
        const std::string home = to_utf8(value_of(variables, L"CORVANE_HOME_APM_DOTNET"));
        if (!home.empty() && !facts.config) {
            throw Failure("there is no agent.config in " + home + " that can be read");
        }
        print_line(home.empty() ? "agent.config: none, because CORVANE_HOME_APM_DOTNET is not set"
                                : "agent.config: " + home + "\\agent.config");
        print(rules_text(facts.config ? &*facts.config : nullptr,
                         value_of(variables, L"CORVANE_METHODS")));
        return kSuccess;
    };
}

} // namespace corvane::tool
