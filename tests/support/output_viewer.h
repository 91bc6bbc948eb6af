// OutputViewer: reads what the processes of the session write to the debugger output, as a viewer
// of the whole system does: over a page of shared memory and two events. One at a time.
#pragma once

#include "base/owned_handle.h"

#include <windows.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace corvane::testing {

class OutputViewer {
public:
    // Keeps the lines of one process, or of all.
    explicit OutputViewer(DWORD process = 0) : process_(process) {
        if (!ready_ || !data_ || !memory_ || page_ == nullptr) {
            throw std::runtime_error("another viewer runs");
        }
        reader_ = std::thread([this] { read(); });
    }
    OutputViewer(const OutputViewer&) = delete;
    OutputViewer& operator=(const OutputViewer&) = delete;
    ~OutputViewer() {
        leaving_ = true;
        reader_.join();
        UnmapViewOfFile(page_);
    }

    std::vector<std::string> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

private:
    struct Page {
        DWORD process;
        char text[4096 - sizeof(DWORD)];
    };

    void read() {
        while (!leaving_) {
            SetEvent(ready_.get());
            while (WaitForSingleObject(data_.get(), 10) == WAIT_TIMEOUT) {
                if (leaving_) {
                    return;
                }
            }
            if (process_ == 0 || page_->process == process_) {
                const std::lock_guard lock(mutex_);
                lines_.emplace_back(page_->text, strnlen(page_->text, sizeof(page_->text)));
            }
        }
    }

    const DWORD process_;
    OwnedHandle ready_{CreateEventW(nullptr, FALSE, FALSE, L"DBWIN_BUFFER_READY")};
    OwnedHandle data_{CreateEventW(nullptr, FALSE, FALSE, L"DBWIN_DATA_READY")};
    OwnedHandle memory_{CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                           sizeof(Page), L"DBWIN_BUFFER")};
    Page* page_ = static_cast<Page*>(MapViewOfFile(memory_.get(), FILE_MAP_READ, 0, 0, 0));
    std::atomic<bool> leaving_ = false;
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
    std::thread reader_;
};

} // namespace corvane::testing
