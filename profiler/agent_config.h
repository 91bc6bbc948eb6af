// The agent's settings: "agent.config" in the folder that CORVANE_HOME_APM_DOTNET names.
// Nothing is cached: each query loads the file again. Runs on the thread that initialises the
// profiler; no state of its own.
#pragma once

#include "base/log_sink.h"

#include <boost/property_tree/ptree.hpp>

#include <string>
#include <string_view>

namespace corvane {

// Narrow strings as the file has them (UTF-8 by its declaration); attributes stand under
// "<xmlattr>".
using AgentConfig = boost::property_tree::ptree;

inline constexpr const char* kHomeVariable = "CORVANE_HOME_APM_DOTNET";

// Elements nested deeper than this are refused as malformed: the parser and the tree recurse once
// per level, and the thread that initialises the runtime must not run out of stack.
inline constexpr int kMaxElementDepth = 128;

// Fills `config` from the file. False when the variable is not set or empty (silently) or when the
// file is missing or not XML (one message); `config` is then empty.
bool LoadAgentConfig(AgentConfig& config, const LogSink& log);

// The same for a folder that the caller names, in the system's code page.
bool load_agent_config(const std::string& home, AgentConfig& config, const LogSink& log);

// Whether the first appSettings entry with this key carries this value. Both compare exactly.
bool check_key(const AgentConfig& config, std::string_view key, std::string_view value,
               const LogSink& log);

} // namespace corvane
