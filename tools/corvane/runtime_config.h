// What a program's runtimeconfig.json says of the runtime that it runs on. The text may be
// anything. Pure.
#pragma once

#include "tools/corvane/environment.h"

#include <string>
#include <string_view>

namespace corvane::tool {

struct RuntimeConfig {
    std::string version;      // that the program was made for; empty if it is not known
    std::string roll_forward; // empty: the default
    bool has_hooks = true;    // start-up hooks are not switched off
};

RuntimeConfig read_runtime_config(std::string_view json);

// Whether the program runs on a .NET before 8, with these variables.
bool runs_before_net_8(const RuntimeConfig& config, const Environment& variables);

} // namespace corvane::tool
