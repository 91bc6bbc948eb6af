// The files that the name of a program may mean, as a shell looks for them. Pure.
#pragma once

#include "tools/corvane/words.h"

#include <string>
#include <string_view>

namespace corvane::tool {

// The folders in the text of a variable such as PATH.
Words folders_of(std::wstring_view path);

// In the order of the search. A name may have dots of its own, so that ".exe" is missing in spite
// of them. One that leads to a folder itself is searched for nowhere else.
Words candidates(const std::wstring& name, const Words& folders);

// The names that the system tries for a command line whose program is not quoted: it may end at any
// blank.
Words possible_programs(const std::wstring& line);

} // namespace corvane::tool
