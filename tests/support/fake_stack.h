// FakeStack: a runtime whose threads have the stacks that a test gives them. It takes no memory
// while it is asked for them. Several threads may ask.
#pragma once

#include "tests/support/fake_runtime.h"

#include <functional>
#include <map>
#include <mutex>
#include <vector>

namespace corvane::testing {

class FakeStack final : public FailingRuntime {
public:
    FakeStack() { const std::lock_guard first(mutex_); } // takes memory for it

    std::vector<FunctionID> frames; // innermost first; 0 is a run of native frames
    std::map<ThreadID, std::vector<FunctionID>> frames_of; // threads with stacks of their own
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
        {
            const std::lock_guard lock(mutex_);
            thread = walked;
            callback = report;
            flags = snapshot_flags;
            seed = context;
            seed_size = context_size;
            walker = GetCurrentThreadId();
            reported = 0;
        }
        during_walk();
        const auto own = frames_of.find(walked);
        for (const FunctionID frame : own != frames_of.end() ? own->second : frames) {
            {
                const std::lock_guard lock(mutex_);
                ++reported;
            }
            if (report(frame, 0x1000 + frame, 0, 0, nullptr, client_data) != S_OK) {
                return CORPROF_E_STACKSNAPSHOT_ABORTED;
            }
        }
        return result;
    }

private:
    std::mutex mutex_; // around what it was asked for
};

} // namespace corvane::testing
