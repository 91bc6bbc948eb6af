// Variables of an application pool in the text of IIS's applicationHost.config. What does not
// concern them stays as it is, byte by byte. The text may be anything. Pure.
#pragma once

#include "tools/corvane/environment.h"

#include <optional>
#include <string>
#include <string_view>

namespace corvane::tool {

// Nothing if the text has no such pool that can be read.
std::optional<Environment> pool_variables(std::string_view config, std::wstring_view pool);

// The text after the changes. Changes that undo each other give the text as it was, if it is laid
// out as IIS does it.
std::optional<std::string> with_pool_variables(std::string config, std::wstring_view pool,
                                               const Changes& changes);

} // namespace corvane::tool
