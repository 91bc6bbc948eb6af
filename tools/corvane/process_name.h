// The name of a process's executable, for those who read of it.
#pragma once

#include "base/owned_handle.h"

#include <string>

namespace corvane::tool {

// Null where it has ended, or belongs to somebody else.
OwnedHandle open_process(DWORD process);

// "?" for null.
std::string process_name(HANDLE process);

} // namespace corvane::tool
