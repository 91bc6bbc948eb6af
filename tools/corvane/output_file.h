// A file that a program is going to write.
#pragma once

#include <string>

namespace corvane::tool {

// "{pid}" replaced.
std::wstring with_process(std::wstring file, const std::wstring& process);

// Makes its folder. Throws Failure if the file cannot be written; leaves it as it was.
void prepare_output(const std::wstring& file);

} // namespace corvane::tool
