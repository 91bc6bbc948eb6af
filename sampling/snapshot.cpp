#include "sampling/snapshot.h"

#include "base/hresult_text.h"
#include "base/owned_handle.h"
#include "base/runtime_state.h"
#include "sampling/automation.h"
#include "sampling/export_result.h"
#include "sampling/frame_list.h"
#include "sampling/known_functions.h"
#include "sampling/thread_map.h"
#include "sampling/wall_clock.h"
#include "sampling/worker_thread.h"

namespace corvane {
namespace {

constexpr DWORD kThreadAccess =
    THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | THREAD_QUERY_INFORMATION;

// What the worker returns when it has not come to a walk.
constexpr HRESULT kNotWalked = 1;

HRESULT STDMETHODCALLTYPE StackSnapshotCallback(FunctionID function, UINT_PTR, COR_PRF_FRAME_INFO,
                                                ULONG32, BYTE*, void* client_data) {
    if (client_data == nullptr) {
        return S_FALSE; // ends the walk
    }
    // A run of native frames has no function.
    if (function != 0 && !static_cast<FrameList*>(client_data)->append(function)) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

// Of a thread on its last instructions, which has left the runtime but not yet the system. The
// runtime ends the process when it is asked to walk one.
bool has_left_the_runtime(ThreadID thread) {
    HANDLE handle = nullptr; // the runtime's own
    return profilerInfo2->GetHandleFromThread(thread, &handle) == E_INVALIDARG;
}

// The target is suspended. Its context is deliberately not passed as the place to start from: the
// runtime finds the first managed frame itself.
HRESULT walk(ThreadID target, FrameList& frames) {
    if (!profilerInfo2) {
        return CORPROF_E_PROFILER_NOT_YET_INITIALIZED;
    }
    if (has_left_the_runtime(target)) {
        return S_OK; // without frames, like a thread that has ended
    }
    return profilerInfo2->DoStackSnapshot(target, StackSnapshotCallback, COR_PRF_SNAPSHOT_DEFAULT,
                                          &frames, nullptr, 0);
}

// A snapshot's status; the frames are filled in when it is kSucceeded.
std::int32_t request_snapshot(std::uint32_t os_thread, std::vector<FunctionID>& frames) {
    if (find_thread(os_thread) == 0) {
        return kNoSnapshot;
    }
    CorvaneSnapshot request;
    request.osThreadId = static_cast<std::int32_t>(os_thread);
    run_worker(&Thread_Do_Stack_Snapshot, request);
    if (request.status < 1) {
        frames = std::move(request.frames);
        return kSucceeded;
    }
    return request.status;
}

SAFEARRAY* as_array(const std::vector<FunctionID>& frames) {
    DoubleArray array(static_cast<ULONG>(frames.size()));
    for (std::size_t i = 0; i < frames.size(); ++i) {
        array.set(i, static_cast<double>(frames[i]));
    }
    return array.release();
}

std::int32_t take_snapshot(std::uint32_t os_thread, SAFEARRAY** frames, std::int32_t* count,
                           std::uint64_t* timestamp) {
    if (frames == nullptr) {
        return kNullArgument;
    }
    *frames = nullptr;
    if (count == nullptr) {
        return kNullArgument;
    }
    *count = 0;
    if (timestamp == nullptr) {
        return kNullArgument;
    }
    *timestamp = 0;

    std::vector<FunctionID> functions;
    const std::int32_t status = request_snapshot(os_thread, functions);
    if (status > 0) {
        return status;
    }
    *count = static_cast<std::int32_t>(functions.size());
    *frames = as_array(functions);
    *timestamp = WallClock::of_process().now();
    return kSucceeded;
}

} // namespace

// Where it gives up before the walk the status deliberately stays, so that the snapshot succeeds
// without frames: a thread that has just ended is no failure.
HRESULT Thread_Do_Stack_Snapshot(CorvaneSnapshot* request) {
    const auto os_thread = static_cast<DWORD>(request->osThreadId);
    const ThreadID target = find_thread(os_thread);
    // The id of a thread that has ended may be another's by now, which the runtime does not know,
    // or this worker's own.
    const RunningThread running(target, os_thread); // cannot end before the walk has
    if (target == 0 || !running || os_thread == GetCurrentThreadId()) {
        return kNotWalked;
    }
    FrameList frames(request->frames);
    OwnedHandle thread(OpenThread(kThreadAccess, FALSE, os_thread));
    if (!thread) {
        return kNotWalked;
    }
    const WalkStart start = begin_walk();
    set_snapshot_target(request->osThreadId);

    // Until the target runs again nothing may wait for what it may hold: no lock, no heap.
    const DWORD suspend_count = SuspendThread(thread.get());
    if (static_cast<std::int32_t>(suspend_count) < 0) {
        thread.release(); // deliberately stays open
        set_snapshot_target(kNoSnapshotTarget);
        return kNotWalked;
    }
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_FULL;
    if (GetThreadContext(thread.get(), &context) == FALSE) {
        // Deliberate: the target stays suspended, its handle open, and it stays the one that is
        // sampled.
        thread.release();
        request->status = kNoSnapshot;
        return static_cast<HRESULT>(suspend_count);
    }
    const HRESULT walked = walk(target, frames);
    ResumeThread(thread.get());

    thread.reset();
    set_snapshot_target(kNoSnapshotTarget);
    if (walked != S_OK) {
        // Not told before: the target might hold what writing a line takes.
        log_result(
            default_log,
            L"CClrProfiler::Thread_Do_Stack_Snapshot().DoStackSnapshot() did not return S_OK %s",
            walked, 4);
        request->status = kNoSnapshot;
        return walked;
    }
    note_walked_functions(start, frames.frames());
    request->frames.assign(frames.frames().begin(), frames.frames().end());
    return S_OK;
}

} // namespace corvane

std::int32_t TakeSnapshot(std::uint32_t osThreadId, SAFEARRAY** frames, std::int32_t* frameCount,
                          std::uint64_t* timestamp) {
    return corvane::finish_export(corvane::attempt_export(
        [&] { return corvane::take_snapshot(osThreadId, frames, frameCount, timestamp); }));
}
