// What `corvane explain --json` prints: one object, a method at a time, for with their code all
// methods of a large assembly take more memory than the assembly.
#pragma once

#include "tools/corvane/offline/decided_methods.h"

#include <string>

namespace corvane::tool {

struct ExplainedAssembly {
    std::string path;
    std::string runtime; // the folder
    bool strict = false;
    Neighbours neighbours;
};

// Up to the list of methods, which is left open.
std::string json_head(const ExplainedAssembly& assembly, Totals totals);

// A method in one line; with its bodies if there are any.
std::string json_of(const Decided& method, const Bodies* bodies, MetadataNames& names);

} // namespace corvane::tool
