#include "base/log_file.h"

#include "base/hresult_text.h"
#include "base/log_settings.h"

#include <cstring>
#include <cwchar>
#include <iterator>
#include <utility>
#include <vector>

namespace corvane {
namespace {

// In ms. The file is looked for anew from time to time: another process may have put it away, or
// somebody may have deleted it.
constexpr std::uint64_t kKeptOpen = 1000;
constexpr std::uint64_t kRetry = 5000;
constexpr std::uint64_t kPatience = 500;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

DWORD last_error() {
    const DWORD error = GetLastError();
    return error != ERROR_SUCCESS ? error : ERROR_GEN_FAILURE;
}

OwnedHandle open_file(const std::wstring& path, DWORD access, DWORD disposition) {
    const HANDLE file = CreateFileW(path.c_str(), access, kShareAll, nullptr, disposition,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    return OwnedHandle(file != INVALID_HANDLE_VALUE ? file : nullptr);
}

std::wstring record_start() {
    SYSTEMTIME now;
    GetSystemTime(&now);
    wchar_t text[64] = {};
    _snwprintf(text, std::size(text) - 1, L"%04u-%02u-%02uT%02u:%02u:%02u.%03uZ %lu ", now.wYear,
               now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds,
               GetCurrentProcessId());
    return text;
}

// Keeps other processes from appending: not every file system does that in one step. It lies behind
// what a file can hold, so that nobody is kept from reading. A process that a debugger has stopped
// may hold it: after a moment the line is written all the same.
class AppendLock {
public:
    AppendLock(HANDLE file, std::uint64_t patience) : file_(file) {
        const std::uint64_t begin = GetTickCount64();
        do {
            OVERLAPPED place = at();
            held_ = LockFileEx(file_, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0,
                               &place) != FALSE;
        } while (!held_ && GetLastError() == ERROR_LOCK_VIOLATION && wait(begin, patience));
    }
    AppendLock(const AppendLock&) = delete;
    AppendLock& operator=(const AppendLock&) = delete;
    ~AppendLock() {
        if (held_) {
            OVERLAPPED place = at();
            UnlockFileEx(file_, 0, 1, 0, &place);
        }
    }

    [[nodiscard]] bool is_held() const { return held_; }

private:
    static OVERLAPPED at() {
        OVERLAPPED place = {};
        place.OffsetHigh = 0x40000000;
        return place;
    }

    static bool wait(std::uint64_t begin, std::uint64_t patience) {
        if (GetTickCount64() - begin >= patience) {
            return false;
        }
        Sleep(1);
        return true;
    }

    HANDLE file_;
    bool held_ = false;
};

// The file that this handle stands for, whatever its name is by now.
DWORD rename_file(HANDLE file, const std::wstring& name) {
    const std::size_t length = name.size() * sizeof(wchar_t);
    std::vector<std::uint8_t> bytes(sizeof(FILE_RENAME_INFO) + length);
    auto* const info = reinterpret_cast<FILE_RENAME_INFO*>(bytes.data());
    info->ReplaceIfExists = TRUE;
    info->FileNameLength = static_cast<DWORD>(length);
    std::memcpy(info->FileName, name.data(), length);
    return SetFileInformationByHandle(file, FileRenameInfo, info,
                                      static_cast<DWORD>(bytes.size())) != FALSE
               ? ERROR_SUCCESS
               : last_error();
}

// A file that another process has open gives up its name at once, and itself with its last handle.
void discard(const std::wstring& name) {
    const OwnedHandle file = open_file(name, DELETE, OPEN_EXISTING);
    if (file &&
        rename_file(file.get(), name + L'.' + std::to_wstring(GetCurrentProcessId()) + L'.' +
                                    std::to_wstring(GetTickCount64())) == ERROR_SUCCESS) {
        FILE_DISPOSITION_INFO gone{TRUE};
        SetFileInformationByHandle(file.get(), FileDispositionInfo, &gone, sizeof(gone));
    }
}

} // namespace

LogFile::LogFile(std::wstring path, std::uint64_t limit) : path_(std::move(path)), limit_(limit) {}

bool LogFile::takes_lines() const noexcept {
    const std::uint64_t not_before = not_before_.load(std::memory_order_relaxed);
    return not_before == 0 || GetTickCount64() >= not_before;
}

std::wstring LogFile::append(std::wstring_view line) {
    if (!takes_lines()) {
        return {};
    }
    const std::string record = log_record(record_start(), line);
    DWORD error = ERROR_SUCCESS;
    {
        const std::lock_guard lock(mutex_);
        error = write(record);
        const bool is_known = std::exchange(failing_, error != ERROR_SUCCESS);
        not_before_ = failing_ ? GetTickCount64() + kRetry : 0;
        if (failing_) {
            file_.reset();
        }
        if (!failing_ || is_known) {
            return {};
        }
    }
    return L"Failed to write the log file " + path_ + L" (" +
           hresult_text(HRESULT_FROM_WIN32(error)).c_str() + L")";
}

DWORD LogFile::write(const std::string& record) {
    const std::string text = (torn_ ? "\r\n" : "") + record;
    DWORD error = GetTickCount64() - opened_at_ < kKeptOpen && file_ ? ERROR_SUCCESS : open();
    // The file behind the name is another one after each turn, put away by this process or another.
    for (int turns = 0; error == ERROR_SUCCESS && turns < 3; ++turns) {
        {
            const AppendLock lock(file_.get(), lock_is_stuck_ ? 0 : kPatience);
            lock_is_stuck_ = !lock.is_held();
            if (has_room(file_.get(), text.size())) {
                DWORD written = 0;
                const BOOL done = WriteFile(file_.get(), text.data(),
                                            static_cast<DWORD>(text.size()), &written, nullptr);
                error = done == FALSE ? last_error() : ERROR_SUCCESS;
                const bool whole = error == ERROR_SUCCESS && written == text.size();
                torn_ = whole ? false : torn_ || written != 0;
                return whole || error != ERROR_SUCCESS ? error : ERROR_DISK_FULL;
            }
        }
        error = put_away(text.size());
        if (error == ERROR_SUCCESS) {
            error = open();
        }
    }
    return error != ERROR_SUCCESS ? error : ERROR_FILE_TOO_LARGE;
}

DWORD LogFile::open() {
    file_.reset(); // a deleted file may stay for as long as somebody has it open
    file_ = open_file(path_, FILE_APPEND_DATA | FILE_READ_DATA, OPEN_ALWAYS);
    if (!file_) {
        return last_error();
    }
    opened_at_ = GetTickCount64();
    return ERROR_SUCCESS;
}

// Of the file that has the name now, which another process may have begun a moment ago.
DWORD LogFile::put_away(std::size_t needed) const {
    const OwnedHandle file = open_file(path_, DELETE | FILE_READ_ATTRIBUTES, OPEN_EXISTING);
    if (!file) {
        const DWORD error = last_error();
        return error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error;
    }
    if (has_room(file.get(), needed)) {
        return ERROR_SUCCESS;
    }
    const std::wstring older = path_ + L".old";
    DWORD error = rename_file(file.get(), older);
    if (error == ERROR_ACCESS_DENIED) { // a process that is idle may have the older one open
        discard(older);
        error = rename_file(file.get(), older);
    }
    return error;
}

// An empty file takes a record of any length. What has no size, such as a device, is never full.
bool LogFile::has_room(HANDLE file, std::size_t needed) const {
    LARGE_INTEGER size;
    return GetFileSizeEx(file, &size) == FALSE || size.QuadPart == 0 ||
           static_cast<std::uint64_t>(size.QuadPart) + needed <= limit_;
}

} // namespace corvane
