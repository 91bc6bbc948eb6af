// The findings of agent.config: where it is, and what it says of the program. Pure.
#pragma once

#include "tools/corvane/findings.h"

namespace corvane::tool {

void find_in_config(const CheckFacts& facts, Findings& found);

} // namespace corvane::tool
