// Text in columns of a terminal. Widths count code points: the names of a program are not only
// ASCII. Pure.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::tool {

std::size_t width_of(std::string_view utf8);

// With blanks up to that width. A longer text stays as it is.
std::string padded(std::string text, std::size_t width);

// The text in lines of at most that width, the second and later ones behind so many blanks. Breaks
// at a blank or behind a sign of punctuation where there is one.
std::vector<std::string> wrapped(std::string_view text, std::size_t width, std::size_t hanging);

} // namespace corvane::tool
