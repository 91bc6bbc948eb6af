// ThreadCalls: watches how this program suspends, inspects and resumes a thread while it lives, and
// lets one of these calls fail. One at a time, for one snapshot at a time; it takes no memory.
#pragma once

#include "tests/support/patched_import.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <string_view>

namespace corvane::testing {

class ThreadCalls {
public:
    ThreadCalls() = default;
    ThreadCalls(const ThreadCalls&) = delete;
    ThreadCalls& operator=(const ThreadCalls&) = delete;

    // The call that fails; none if it is empty.
    std::string_view failing;

    // What was called, a letter each: O open, S suspend, C get the context, R resume, X close. More
    // are put in between by who sees it.
    std::string_view sequence() const { return {sequence_, length_}; }
    void note(char call) {
        if (length_ < sizeof(sequence_)) {
            sequence_[length_++] = call;
        }
    }

    // What OpenThread was asked for and gave, and what GetThreadContext was asked for.
    DWORD access = 0;
    BOOL is_inheritable = -1;
    DWORD os_thread = 0;
    HANDLE handle = nullptr;
    DWORD context_flags = 0;

    // OpenThread gives a handle of this thread, whatever it is asked for, unless it is 0.
    DWORD opened_instead = 0;

    // Requests of memory between the suspension and the resumption of the thread, by any thread.
    std::size_t requests_while_suspended() const { return requests_; }

private:
    static inline ThreadCalls* current = nullptr;
    ThreadCalls* const own_ = current = this; // before the first call comes

    bool fails(std::string_view call) const { return call == failing; }

    static HANDLE WINAPI open(DWORD access, BOOL is_inheritable, DWORD os_thread) {
        ThreadCalls& calls = *current;
        calls.note('O');
        calls.access = access;
        calls.is_inheritable = is_inheritable;
        calls.os_thread = os_thread;
        if (!calls.fails("OpenThread")) {
            calls.handle = calls.open_.original()(access, is_inheritable,
                                                  calls.opened_instead != 0 ? calls.opened_instead
                                                                            : os_thread);
        }
        return calls.handle;
    }
    static DWORD WINAPI suspend(HANDLE thread) {
        ThreadCalls& calls = *current;
        calls.note('S');
        if (calls.fails("SuspendThread")) {
            return static_cast<DWORD>(-1);
        }
        const DWORD count = calls.suspend_.original()(thread);
        calls.is_suspended_ = true;
        return count;
    }
    static BOOL WINAPI get_context(HANDLE thread, CONTEXT* context) {
        ThreadCalls& calls = *current;
        calls.note('C');
        calls.context_flags = context->ContextFlags;
        return calls.fails("GetThreadContext") ? FALSE : calls.context_.original()(thread, context);
    }
    static DWORD WINAPI resume(HANDLE thread) {
        ThreadCalls& calls = *current;
        if (thread == calls.handle) { // and not a new thread that starts
            calls.note('R');
            calls.is_suspended_ = false;
        }
        return calls.resume_.original()(thread);
    }
    static BOOL WINAPI close(HANDLE handle) {
        ThreadCalls& calls = *current;
        if (handle == calls.handle) {
            calls.note('X');
            calls.handle = nullptr;
        }
        return calls.close_.original()(handle);
    }

    // What operator new takes from a heap comes through the first one.
    static void* take(std::size_t size) {
        current->requests_ += current->is_suspended_ ? 1 : 0;
        return current->malloc_.original()(size);
    }
    static void* WINAPI take_of_heap(HANDLE heap, DWORD flags, SIZE_T size) {
        current->requests_ += current->is_suspended_ ? 1 : 0;
        return current->heap_alloc_.original()(heap, flags, size);
    }

    char sequence_[64] = {};
    std::size_t length_ = 0;
    std::atomic<bool> is_suspended_ = false;
    std::atomic<std::size_t> requests_ = 0;

    PatchedImport<decltype(OpenThread)> open_{"OpenThread", &open};
    PatchedImport<decltype(SuspendThread)> suspend_{"SuspendThread", &suspend};
    PatchedImport<decltype(GetThreadContext)> context_{"GetThreadContext", &get_context};
    PatchedImport<decltype(ResumeThread)> resume_{"ResumeThread", &resume};
    PatchedImport<decltype(CloseHandle)> close_{"CloseHandle", &close};
    PatchedImport<void*(std::size_t)> malloc_{"malloc", &take};
    PatchedImport<decltype(HeapAlloc)> heap_alloc_{"HeapAlloc", &take_of_heap};
};

} // namespace corvane::testing
