#include "tools/corvane/debugger_output.h"

#include "base/local_memory.h"

#include <sddl.h>

#include <algorithm>
#include <cstring>

namespace corvane::tool {
namespace {

// Processes of other users and of low integrity write as well.
constexpr const wchar_t* kForEverybody = L"D:(A;;GA;;;WD)S:(ML;;NW;;;LW)";

} // namespace

struct DebuggerOutput::Page {
    DWORD process;
    char text[4096 - sizeof(DWORD)];
};

bool DebuggerOutput::open(DWORD milliseconds) {
    constexpr DWORD kPause = 50;
    // Who writes has it meanwhile, so that nobody does while we have it.
    const OwnedHandle writing(CreateMutexW(nullptr, FALSE, L"DBWinMutex"));
    const ULONGLONG end = GetTickCount64() + milliseconds;
    for (;;) {
        const ULONGLONG now = GetTickCount64();
        const DWORD left = now < end ? static_cast<DWORD>(end - now) : 0;
        const DWORD taken = WaitForSingleObject(writing.get(), left);
        const bool is_open = try_to_open();
        if (taken == WAIT_OBJECT_0 || taken == WAIT_ABANDONED) {
            ReleaseMutex(writing.get());
        }
        if (is_open || left == 0) {
            return is_open;
        }
        Sleep(std::min(left, kPause));
    }
}

bool DebuggerOutput::try_to_open() {
    LocalMemory<void> descriptor;
    PSECURITY_DESCRIPTOR made = nullptr;
    if (ConvertStringSecurityDescriptorToSecurityDescriptorW(kForEverybody, SDDL_REVISION_1, &made,
                                                             nullptr) != FALSE) {
        descriptor.reset(made);
    }
    SECURITY_ATTRIBUTES attributes = {sizeof(SECURITY_ATTRIBUTES), descriptor.get(), FALSE};
    memory_.reset(CreateFileMappingW(INVALID_HANDLE_VALUE, &attributes, PAGE_READWRITE, 0,
                                     sizeof(Page), L"DBWIN_BUFFER"));
    const bool is_first = memory_ && GetLastError() != ERROR_ALREADY_EXISTS;
    ready_.reset(CreateEventW(&attributes, FALSE, FALSE, L"DBWIN_BUFFER_READY"));
    data_.reset(CreateEventW(&attributes, FALSE, FALSE, L"DBWIN_DATA_READY"));
    if (!is_first || !ready_ || !data_) {
        memory_.reset(); // this try is not to be the viewer that the next one finds
        return false;
    }
    page_.reset(static_cast<const Page*>(MapViewOfFile(memory_.get(), FILE_MAP_READ, 0, 0, 0)));
    if (page_ == nullptr) {
        return false;
    }
    SetEvent(ready_.get());
    return true;
}

std::optional<DebuggerOutput::Piece> DebuggerOutput::next(HANDLE stop, DWORD milliseconds) {
    const HANDLE handles[] = {stop, data_.get()};
    if (WaitForMultipleObjects(2, handles, FALSE, milliseconds) != WAIT_OBJECT_0 + 1) {
        return std::nullopt;
    }
    Piece piece;
    piece.process = page_->process;
    const std::size_t length = strnlen(page_->text, sizeof(page_->text));
    piece.text.assign(page_->text, length);
    piece.is_full = length + 1 >= sizeof(page_->text);
    SetEvent(ready_.get());
    return piece;
}

} // namespace corvane::tool
