// AgentHome: points CORVANE_HOME_APM_DOTNET at a folder for the length of a test.
// The folder and its agent.config are the test's own and go with it; the variable is put back.
#pragma once

#include <optional>
#include <string>

namespace corvane::testing {

// Sets a variable of this process as getenv sees it, or removes it.
void set_variable(const char* name, const std::optional<std::string>& value);
std::optional<std::string> get_variable(const char* name);

// Restores a variable when the test ends.
class ScopedVariable {
public:
    ScopedVariable(std::string name, const std::optional<std::string>& value);
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;
    ~ScopedVariable();

private:
    std::string name_;
    std::optional<std::string> before_;
};

class AgentHome {
public:
    // A new folder `name` in the temporary folder; the variable names it and ends in `separator`.
    explicit AgentHome(const std::string& agent_config, const std::string& name = "agent home",
                       const std::string& separator = "");
    AgentHome(const AgentHome&) = delete;
    AgentHome& operator=(const AgentHome&) = delete;
    ~AgentHome();

    // Only the variable: not set, or naming what the test chose.
    static AgentHome unset() { return AgentHome(NoFolder{}, std::nullopt); }
    static AgentHome pointing_to(const std::string& folder) {
        return AgentHome(NoFolder{}, folder);
    }

    const std::string& folder() const { return folder_; }
    void remove_config() const;

private:
    struct NoFolder {};
    AgentHome(NoFolder, const std::optional<std::string>& variable);

    std::string parent_; // this test's own folder; empty when none was made
    std::string folder_;
    ScopedVariable variable_;
};

} // namespace corvane::testing
