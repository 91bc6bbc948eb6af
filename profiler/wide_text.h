// The two operations on wide text that depend on the platform's tables: widening and
// case-insensitive comparison.
#pragma once

#include <string>
#include <string_view>

namespace corvane {

// UTF-8 to the platform's wide text (UTF-16 on Windows). Throws std::runtime_error on malformed
// input.
std::wstring widen_utf8(std::string_view utf8);

// Ordinal comparison without regard to letter case, by the platform's table and no language's
// rules.
bool equals_ignore_case(std::wstring_view left, std::wstring_view right);

} // namespace corvane
