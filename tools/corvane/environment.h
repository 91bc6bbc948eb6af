// Variables of a process, the changes that a run makes to them, and the forms in which both are
// handed on.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane::tool {

struct IgnoreCase {
    using is_transparent = void;
    bool operator()(std::wstring_view left, std::wstring_view right) const;
};
using Environment = std::map<std::wstring, std::wstring, IgnoreCase>;

// Empty if it is not set.
std::wstring value_of(const Environment& environment, std::wstring_view name);

// Names and values that are set; without a value, what must not be there. In the order in which
// they are shown.
using Changes = std::vector<std::pair<std::wstring, std::optional<std::wstring>>>;

Environment changed(Environment environment, const Changes& changes);

// To and from the system's form: NAME=VALUE texts, each with a zero behind it, and one more zero.
Environment parse_environment(const wchar_t* block);
std::wstring environment_block(const Environment& environment);

// The changes as lines for somebody else to run or to read.
std::wstring as_batch_file(const Changes& changes);
std::wstring as_powershell(const Changes& changes);

// What undoes the changes: lines NAME=VALUE for what was there before, and NAME for what was not.
std::wstring undoing(const Environment& before, const Changes& changes);

} // namespace corvane::tool
