// Reads from the machine what findings.h decides on.
#pragma once

#include "tools/corvane/findings.h"
#include "tools/corvane/installation.h"
#include "tools/corvane/program.h"

namespace corvane::tool {

// Of the variables that a program gets: the files that they name, the registration. Without a
// program: as for one of .NET.
CheckFacts read_check_facts(const Environment& variables, const Installation& installed,
                            std::optional<ProgramFacts> program);

// Of a program that was looked for; `name` is how it was asked for.
ProgramFacts read_program_facts(const Program& program, const std::string& name,
                                const Environment& variables);

} // namespace corvane::tool
