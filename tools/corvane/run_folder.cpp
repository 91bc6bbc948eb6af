#include "tools/corvane/run_folder.h"

#include "base/owned_handle.h"
#include "tools/corvane/command.h"
#include "tools/corvane/program.h"
#include "tools/corvane/utf8.h"

#include <windows.h>

#include <cwchar>
#include <string>

namespace corvane::tool {
namespace {

namespace fs = std::filesystem;

constexpr wchar_t kPrefix[] = L"corvane-run-";

std::wstring short_path(const fs::path& path) {
    std::wstring text(MAX_PATH, L'\0');
    text.resize(GetShortPathNameW(path.c_str(), text.data(), MAX_PATH));
    return text;
}

// The profiler reads the folder's name in the system's code page.
fs::path temporary_folder() {
    const fs::path usual = fs::temp_directory_path();
    for (const fs::path& candidate :
         {usual, fs::path(short_path(usual)), fs::path(_wgetenv(L"ProgramData"))}) {
        if (!candidate.empty() && in_code_page(candidate.wstring())) {
            return candidate;
        }
    }
    throw Failure("the name of the folder for temporary files, " + to_utf8(usual.wstring()) +
                  ", has characters that the system's code page has not: name another folder in "
                  "the variable TMP");
}

bool runs(DWORD process) {
    const OwnedHandle opened(OpenProcess(SYNCHRONIZE, FALSE, process));
    return opened ? WaitForSingleObject(opened.get(), 0) == WAIT_TIMEOUT
                  : GetLastError() == ERROR_ACCESS_DENIED;
}

void remove_left_folders(const fs::path& parent) {
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(parent, ignored)) {
        const std::wstring name = entry.path().filename().wstring();
        if (name.starts_with(kPrefix) &&
            !runs(std::wcstoul(name.c_str() + std::size(kPrefix) - 1, nullptr, 10))) {
            fs::remove_all(entry.path(), ignored);
        }
    }
}

} // namespace

RunFolder::RunFolder() {
    const fs::path parent = temporary_folder();
    remove_left_folders(parent);
    path_ = parent / (kPrefix + std::to_wstring(GetCurrentProcessId()));
    std::error_code error;
    if (!fs::create_directory(path_, error)) {
        throw Failure("cannot make the folder " + to_utf8(path_.wstring()) + ": " +
                      error.message());
    }
}

RunFolder::~RunFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

} // namespace corvane::tool
