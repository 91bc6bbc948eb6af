// FakeStack: a runtime whose threads all have the stack that a test gives them. It takes no memory
// while it is asked for it.
#pragma once

#include "tests/support/fake_runtime.h"

#include <functional>
#include <vector>

namespace corvane::testing {

class FakeStack final : public FailingRuntime {
public:
    std::vector<FunctionID> frames; // innermost first; 0 is a run of native frames
    HRESULT result = S_OK;
    HRESULT handle_result = S_OK; // of asking for the thread's handle
    std::function<void()> during_walk = [] {};

    // What it was asked for last.
    ThreadID thread = 0;
    StackSnapshotCallback* callback = nullptr;
    ULONG32 flags = 0xFFFF;
    BYTE* seed = nullptr;
    ULONG32 seed_size = 0xFFFF;
    DWORD walker = 0; // the thread that asked
    std::size_t reported = 0;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; } // the test's own object
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE GetHandleFromThread(ThreadID, HANDLE*) override {
        return handle_result;
    }

    HRESULT STDMETHODCALLTYPE DoStackSnapshot(ThreadID walked, StackSnapshotCallback* report,
                                              ULONG32 snapshot_flags, void* client_data,
                                              BYTE* context, ULONG32 context_size) override {
        thread = walked;
        callback = report;
        flags = snapshot_flags;
        seed = context;
        seed_size = context_size;
        walker = GetCurrentThreadId();
        reported = 0;
        during_walk();
        for (const FunctionID frame : frames) {
            ++reported;
            if (report(frame, 0x1000 + reported, 0, 0, nullptr, client_data) != S_OK) {
                return CORPROF_E_STACKSNAPSHOT_ABORTED;
            }
        }
        return result;
    }
};

} // namespace corvane::testing
