// Writes the keys of a registry script below HKEY_CLASSES_ROOT, and removes them again.
#pragma once

#include "profiler/registry_script.h"

#include <windows.h>

#include <string>
#include <vector>

namespace corvane {

// Keys below HKEY_CLASSES_ROOT that were not there before. Unless they are to stay they go with
// this, with all below them.
class NewRegistryKeys {
public:
    NewRegistryKeys() = default;
    NewRegistryKeys(const NewRegistryKeys&) = delete;
    NewRegistryKeys& operator=(const NewRegistryKeys&) = delete;
    ~NewRegistryKeys();

    // One that is being made; forgotten again when it turns out to have been there.
    void begin(const std::wstring& path) { paths_.push_back(path); }
    void forget_last() noexcept { paths_.pop_back(); }
    void keep() noexcept { paths_.clear(); }

private:
    std::vector<std::wstring> paths_;
};

// Stops at the first call that fails and returns its HRESULT. Throws std::bad_alloc. Values of keys
// that were there before are overwritten, and stay so.
HRESULT write_registry_keys(const RegistryKey& root, NewRegistryKeys& made);

// Removes every key of the script that it does not protect, with all below it. A key that is not
// there is no failure; after any other failure the rest is still removed, and the first is
// returned.
HRESULT remove_registry_keys(const RegistryKey& root) noexcept;

} // namespace corvane
