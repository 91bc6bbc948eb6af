#include "tools/corvane/com_server.h"

#include "base/hresult_text.h"
#include "tools/corvane/command.h"
#include "tools/corvane/utf8.h"

#include <windows.h>

#include <memory>

namespace corvane::tool {
namespace {

struct LibraryCloser {
    void operator()(HMODULE library) const noexcept { FreeLibrary(library); }
};
using LoadedLibrary = std::unique_ptr<std::remove_pointer_t<HMODULE>, LibraryCloser>;

} // namespace

void call_server(const std::wstring& profiler, const char* function) {
    const LoadedLibrary library(LoadLibraryW(profiler.c_str()));
    const auto entry = library ? reinterpret_cast<HRESULT(WINAPI*)()>(reinterpret_cast<void*>(
                                     GetProcAddress(library.get(), function)))
                               : nullptr;
    const HRESULT result = entry != nullptr ? entry() : HRESULT_FROM_WIN32(GetLastError());
    if (FAILED(result)) {
        throw Failure(to_utf8(profiler) + ": " + to_utf8(hresult_text(result).c_str()) +
                      (result == E_ACCESSDENIED ? ". Run this command as administrator" : ""));
    }
}

} // namespace corvane::tool
