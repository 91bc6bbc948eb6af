// What applicationHost.config says of an application pool of IIS. Pure.
#pragma once

#include "tools/corvane/environment.h"

#include <istream>
#include <optional>
#include <string>

namespace corvane::tool {

struct PoolSettings {
    bool is_32_bit = false;
    Environment variables;
};

// Nothing if there is no such pool. Throws std::runtime_error for what is no XML.
std::optional<PoolSettings> read_pool(std::istream& config, const std::wstring& name);

} // namespace corvane::tool
