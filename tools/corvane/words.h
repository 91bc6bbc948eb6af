// The words of a command line: those for the tool, those for the program behind "--", and the line
// that a program gets.
#pragma once

#include <optional>
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

// What stands before an empty word or an empty value, such as the option that it was meant for.
std::optional<std::wstring> before_nothing(const Words& words);

// One word, quoted so that the usual rules of splitting a line give it back.
std::wstring quoted(const std::wstring& word);
std::wstring command_line(const Words& words);

} // namespace corvane::tool
