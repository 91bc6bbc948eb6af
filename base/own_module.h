// The image that this code is part of: CorvaneProfiler.dll, or a test program.
#pragma once

#include <windows.h>

#include <string>

extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace corvane {

inline HINSTANCE own_module() noexcept {
    return reinterpret_cast<HINSTANCE>(&__ImageBase);
}

// Full path, cut at MAX_PATH characters as the loader's classic buffer is.
inline std::wstring own_module_path() {
    wchar_t path[MAX_PATH + 1] = {};
    GetModuleFileNameW(own_module(), path, MAX_PATH);
    return path;
}

} // namespace corvane
