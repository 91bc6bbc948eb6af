// The words of a command line: those for the tool, and those for the program behind "--".
#pragma once

#include <string>
#include <vector>

namespace corvane::tool {

// Wide, so that a program gets exactly what was typed.
using Words = std::vector<std::wstring>;

struct SplitWords {
    Words own;
    Words behind;
};

// At the first "--", which is in neither.
SplitWords split_words(Words words);

} // namespace corvane::tool
