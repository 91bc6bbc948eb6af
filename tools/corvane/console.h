// Standard output and standard error of the tool: UTF-8 in files and pipes, the characters
// themselves on a console, whose code page stays what it is, because the programs that the tool
// starts share it.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace corvane::tool {

void print(std::string_view text);
void print_line(std::string_view text);
void print_to_error(std::string_view text);

// A line, which a console shows in as many as it takes, broken between words, the second and later
// ones behind so many blanks. A file gets it as it stands.
void print_paragraph(std::string_view line, std::size_t hanging);

// A line of the tool's own on standard error, broken likewise.
void print_error(std::string_view line);

// Of the console that is standard output, in characters. Nothing if it is none.
std::optional<std::size_t> console_width();

} // namespace corvane::tool
