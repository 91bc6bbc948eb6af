#include "tools/corvane/run_folder.h"

#include "base/hresult_text.h"
#include "base/local_memory.h"
#include "tools/corvane/command.h"
#include "tools/corvane/program.h"
#include "tools/corvane/utf8.h"

#include <windows.h>

#include <sddl.h>

#include <algorithm>
#include <cwchar>
#include <optional>
#include <string>
#include <vector>

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
    const wchar_t* const shared = _wgetenv(L"ProgramData");
    for (const fs::path& candidate :
         {usual, fs::path(short_path(usual)), fs::path(shared == nullptr ? L"" : shared)}) {
        if (!candidate.empty() && in_code_page(candidate.wstring())) {
            return candidate;
        }
    }
    throw Failure("the name of the folder for temporary files, " + to_utf8(usual.wstring()) +
                  ", has characters that the system's code page has not: name another folder in "
                  "the variable TMP");
}

// This one has not made its folder yet: one of its number is of a process that had it before.
bool runs(DWORD process) {
    if (process == GetCurrentProcessId()) {
        return false;
    }
    const OwnedHandle opened(OpenProcess(SYNCHRONIZE, FALSE, process));
    return opened ? WaitForSingleObject(opened.get(), 0) == WAIT_TIMEOUT
                  : GetLastError() == ERROR_ACCESS_DENIED;
}

// The process that a folder of ours belongs to. A link may lead anywhere.
std::optional<DWORD> owner_of(const fs::path& folder) {
    const std::wstring name = folder.filename().wstring();
    std::wstring number = name.starts_with(kPrefix) ? name.substr(std::size(kPrefix) - 1) : L"";
    number.resize(std::min(number.find(L'-'), number.size()));
    const bool is_number = !number.empty() && number.size() < 10 &&
                           number.find_first_not_of(L"0123456789") == number.npos;
    const DWORD attributes = GetFileAttributesW(folder.c_str());
    if (!is_number || attributes == INVALID_FILE_ATTRIBUTES ||
        (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return std::nullopt;
    }
    return std::wcstoul(number.c_str(), nullptr, 10);
}

// Whoever opens it for sharing with nobody fails while a program has its handle.
bool is_used(const fs::path& folder) {
    const HANDLE opened = CreateFileW(folder.c_str(), FILE_LIST_DIRECTORY, 0, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (opened == INVALID_HANDLE_VALUE) {
        return GetLastError() == ERROR_SHARING_VIOLATION;
    }
    OwnedHandle(opened).reset();
    return false;
}

OwnedHandle inheritable_handle(const fs::path& folder) {
    SECURITY_ATTRIBUTES inheritable = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    const HANDLE opened = CreateFileW(
        folder.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
        &inheritable, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    return OwnedHandle(opened == INVALID_HANDLE_VALUE ? nullptr : opened);
}

void remove_left_folders(const fs::path& parent) {
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(parent, ignored)) {
        const auto owner = owner_of(entry.path());
        if (owner && !runs(*owner) && !is_used(entry.path())) {
            fs::remove_all(entry.path(), ignored);
        }
    }
}

// For this user, who also runs the program, and nobody else: the folder of temporary files may be
// one that all users share.
LocalMemory<void> own_rights() {
    HANDLE opened = nullptr;
    OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened);
    const OwnedHandle token(opened);
    DWORD size = 0;
    GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
    std::vector<BYTE> user(size);
    LPWSTR sid = nullptr;
    PSECURITY_DESCRIPTOR rights = nullptr;
    if (GetTokenInformation(token.get(), TokenUser, user.data(), size, &size) == FALSE ||
        ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid, &sid) ==
            FALSE) {
        throw Failure("cannot find out who runs this command");
    }
    const LocalMemory<wchar_t> text(sid);
    ConvertStringSecurityDescriptorToSecurityDescriptorW(
        (L"D:P(A;OICI;FA;;;" + std::wstring(sid) + L')').c_str(), SDDL_REVISION_1, &rights,
        nullptr);
    return LocalMemory<void>(rights);
}

} // namespace

RunFolder::RunFolder(bool may_be_left) {
    const fs::path parent = temporary_folder();
    remove_left_folders(parent);
    const LocalMemory<void> rights = own_rights();
    SECURITY_ATTRIBUTES attributes = {sizeof(SECURITY_ATTRIBUTES), rights.get(), FALSE};
    // One of this number may be used by what a process that had it before has started.
    path_ = parent / (kPrefix + std::to_wstring(GetCurrentProcessId()));
    while (is_used(path_)) {
        path_ += L"-again";
    }
    if (!rights || CreateDirectoryW(path_.c_str(), &attributes) == FALSE) {
        throw Failure("cannot make the folder " + to_utf8(path_.wstring()) + ": " +
                      to_utf8(hresult_text(HRESULT_FROM_WIN32(GetLastError())).c_str()));
    }
    if (may_be_left) {
        inherited_ = inheritable_handle(path_);
    }
}

RunFolder::~RunFolder() {
    inherited_.reset();
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

} // namespace corvane::tool
