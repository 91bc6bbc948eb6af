// An application pool in the text of IIS's applicationHost.config: what it says, and changes of its
// variables, which leave the rest as it is, byte by byte. The text may be anything. Pure.
#pragma once

#include "tools/corvane/environment.h"

#include <optional>
#include <string>
#include <string_view>

namespace corvane::tool {

struct PoolSettings {
    bool is_32_bit = false;
    Environment own;       // the variables of its own list
    Environment inherited; // those of the defaults, unless it has a list of its own
};

bool is_well_formed(std::string_view config);

// Nothing if the text is malformed or has no such pool.
std::optional<PoolSettings> read_pool(std::string_view config, std::wstring_view pool);

// The text after the changes. Changes that undo each other give the text as it was, if it is laid
// out as IIS does it.
std::optional<std::string> with_pool_variables(std::string config, std::wstring_view pool,
                                               const Changes& changes);

} // namespace corvane::tool
