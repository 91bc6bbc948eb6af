// Scopes of a program that are not to be instrumented: a built-in one for the managed tracing
// library itself, then the lines of "do_not_instrument.txt" beside the profiler's DLL.
// The thread that initialises the profiler loads the list once. Afterwards it is only read. The
// target table, the entry-point rule and the trace attribute choose methods; the list is kept ready
// for a selection step that excludes.
#pragma once

#include <istream>
#include <string>
#include <vector>

namespace corvane {

struct ExcludedScope {
    std::wstring assembly;          // simple name, the text between the brackets
    std::vector<std::wstring> path; // namespaces, types and members; "*" is a component like others
};

// Written by load_excluded_scopes during start-up, read-only from then on.
extern std::vector<ExcludedScope> excluded_scopes;

// "[assembly]name.name": nothing is trimmed, case is kept, empty names between dots are kept.
// Without brackets the assembly is empty.
ExcludedScope parse_scope(const std::wstring& line);

// Appends the scopes of a text, one a line, until the stream ends. Empty lines, lines that start
// with "/" and lines that name no assembly are passed over.
void append_scopes(std::wistream& lines, std::vector<ExcludedScope>& scopes);

// Fills `excluded_scopes`. A missing file is reported and leaves the built-in scope alone.
void load_excluded_scopes();

} // namespace corvane
