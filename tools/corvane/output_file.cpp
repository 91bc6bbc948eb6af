#include "tools/corvane/output_file.h"

#include "base/hresult_text.h"
#include "base/owned_handle.h"
#include "tools/corvane/command.h"
#include "tools/corvane/utf8.h"

#include <windows.h>

#include <filesystem>

namespace corvane::tool {
namespace {

[[noreturn]] void fail(const std::wstring& file, DWORD error) {
    throw Failure("cannot write " + to_utf8(file) + ": " +
                  to_utf8(hresult_text(HRESULT_FROM_WIN32(error)).c_str()) + ". Name another file");
}

} // namespace

std::wstring with_process(std::wstring file, const std::wstring& process) {
    constexpr std::wstring_view kPlace = L"{pid}";
    for (std::size_t at = file.find(kPlace); at != file.npos; at = file.find(kPlace)) {
        file.replace(at, kPlace.size(), process);
    }
    return file;
}

void prepare_output(const std::wstring& file) {
    const std::wstring tried = with_process(file, std::to_wstring(GetCurrentProcessId()));
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(tried).parent_path(), error);
    if (error) {
        fail(file, static_cast<DWORD>(error.value()));
    }
    const HANDLE opened =
        CreateFileW(tried.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    const DWORD result = GetLastError();
    if (opened == INVALID_HANDLE_VALUE) {
        fail(file, result);
    }
    OwnedHandle(opened).reset();
    if (result != ERROR_ALREADY_EXISTS) {
        DeleteFileW(tried.c_str());
    }
}

} // namespace corvane::tool
