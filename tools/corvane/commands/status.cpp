// corvane status
#include "tools/corvane/command.h"
#include "tools/corvane/console.h"
#include "tools/corvane/installation.h"

#include <CLI/CLI.hpp>

namespace corvane::tool {

Work define_status(CLI::App&) {
    return [](const Words&) {
        const Installation found = find_installation();
        const auto line = [](const char* what, const std::string& path) {
            print_line(std::string(what) + (path.empty() ? "missing" : path));
        };
        line("profiler:         ", found.profiler);
        line("managed library:  ", found.library);
        return kSuccess;
    };
}

} // namespace corvane::tool
