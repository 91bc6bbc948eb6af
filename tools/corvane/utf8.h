// UTF-8 to and from the platform's wide text. Neither throws on malformed text: a file may have any
// name.
#pragma once

#include <string>
#include <string_view>

namespace corvane::tool {

std::string to_utf8(std::wstring_view wide);
std::wstring to_wide(std::string_view utf8);

} // namespace corvane::tool
