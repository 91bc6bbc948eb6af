// The profiler's own registration.
#pragma once

#include <string>

namespace corvane::tool {

// Calls DllRegisterServer or DllUnregisterServer of a file. The DLL registers itself: its path is
// in what it writes. Throws Failure.
void call_server(const std::wstring& profiler, const char* function);

} // namespace corvane::tool
