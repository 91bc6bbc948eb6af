// Standard output and standard error of the tool: UTF-8 in files and pipes, the characters
// themselves on a console, whose code page stays what it is, because the programs that the tool
// starts share it.
#pragma once

#include <string_view>

namespace corvane::tool {

void print(std::string_view text);
void print_line(std::string_view text);
void print_to_error(std::string_view text);

// A line of the tool's own on standard error.
void print_error(std::string_view line);

// Whether standard output is a console, which may be coloured and has an end that somebody reads.
bool prints_on_console();

} // namespace corvane::tool
