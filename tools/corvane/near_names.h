// Names that somebody probably meant.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace corvane::tool {

// The one of `names` that is almost `name`: by a letter or two, a missing extension, a folder in
// front, blanks around it. Nothing if none is near.
std::optional<std::string> near_name(const std::string& name,
                                     const std::vector<std::string>& names);

} // namespace corvane::tool
