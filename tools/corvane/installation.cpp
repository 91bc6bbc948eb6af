#include "tools/corvane/installation.h"

#include <windows.h>

#include <filesystem>

namespace corvane::tool {
namespace {

namespace fs = std::filesystem;

std::wstring first_file(std::initializer_list<fs::path> candidates) {
    for (const fs::path& candidate : candidates) {
        std::error_code ignored;
        if (fs::is_regular_file(candidate, ignored)) {
            return candidate.wstring();
        }
    }
    return {};
}

} // namespace

fs::path own_file() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length =
            GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

Installation find_installation() {
    const fs::path folder = own_file().parent_path();
    const fs::path library = "kite.managed.dll";
    const fs::path standard = fs::path("kite_framework") / library;
    return {folder.wstring(), first_file({folder / "CorvaneProfiler.dll"}),
            first_file({folder / library, folder / "managed" / "kite" / library}),
            first_file({folder / standard, folder / "managed" / standard})};
}

} // namespace corvane::tool
