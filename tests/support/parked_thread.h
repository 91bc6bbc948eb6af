// ParkedThread: a thread that does nothing while it lives, to be suspended by the code under test.
#pragma once

#include "base/owned_handle.h"

#include <stdexcept>

namespace corvane::testing {

class ParkedThread {
public:
    ParkedThread()
        : leave_(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
          thread_(CreateThread(nullptr, 0, &wait, leave_.get(), 0, &id_)) {
        if (!leave_ || !thread_) {
            throw std::runtime_error("cannot park a thread");
        }
    }
    ParkedThread(const ParkedThread&) = delete;
    ParkedThread& operator=(const ParkedThread&) = delete;
    ~ParkedThread() {
        SetEvent(leave_.get());
        WaitForSingleObject(thread_.get(), INFINITE);
    }

    DWORD id() const { return id_; }

    // How often it is suspended at the moment.
    DWORD suspend_count() const {
        const DWORD count = suspend_(thread_.get());
        resume();
        return count;
    }

    void resume() const { resume_(thread_.get()); }

private:
    static DWORD WINAPI wait(void* event) { return WaitForSingleObject(event, INFINITE); }

    using ThreadCall = DWORD(WINAPI*)(HANDLE);

    // Past what a test may have put in the place of this program's imports. Looked up beforehand:
    // a thread may be suspended with the loader's lock, which looking up takes as well.
    static ThreadCall real(const char* function) {
        return reinterpret_cast<ThreadCall>(
            reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), function)));
    }

    ThreadCall suspend_ = real("SuspendThread");
    ThreadCall resume_ = real("ResumeThread");
    DWORD id_ = 0;
    OwnedHandle leave_;
    OwnedHandle thread_;
};

} // namespace corvane::testing
