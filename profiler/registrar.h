// Writes the keys of a registry script below HKEY_CLASSES_ROOT, and removes them again.
#pragma once

#include "profiler/registry_script.h"

#include <windows.h>

namespace corvane {

// Stops at the first call that fails and returns its HRESULT.
HRESULT write_registry_keys(const RegistryKey& root) noexcept;

// Removes every key of the script that it does not protect, with all below it. A key that is not
// there is no failure; after any other failure the rest is still removed, and the first is
// returned.
HRESULT remove_registry_keys(const RegistryKey& root) noexcept;

} // namespace corvane
