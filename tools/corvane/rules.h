// The rules in force as text: what an agent.config and the patterns of methods say. Pure; the
// built-in table is the profiler's, whose rows depend on the configuration.
#pragma once

#include "profiler/agent_config.h"

#include <string>
#include <string_view>

namespace corvane::tool {

// `config` is null if there is none.
std::string rules_text(const AgentConfig* config, std::wstring_view patterns);

} // namespace corvane::tool
