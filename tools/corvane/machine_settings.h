// Services and application pools of IIS, as this machine is set up to start them: the program, and
// the variables where they stand.
#pragma once

#include "tools/corvane/environment.h"
#include "tools/corvane/words.h"

#include <filesystem>
#include <string>

namespace corvane::tool {

struct MachineProgram {
    bool exists = false; // a service or a pool of that name
    Words words;         // the command line
    Environment variables;
    bool is_32_bit = false; // a pool that is set up so
};

// IIS's applicationHost.config, which may be missing.
std::filesystem::path host_config_file();

MachineProgram find_service(const std::wstring& name);
MachineProgram find_pool(const std::wstring& name);

} // namespace corvane::tool
