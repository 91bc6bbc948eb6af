// The profiler that the benchmark's runtime loads: it hands the sampled program's thread callbacks
// on to the profiler CORVANE_PROBE and measures its snapshots, at its imports, and the same calls
// made by hand. One thread measures at a time.
#include "bench/measuring.h"
#include "clr/com_ptr.h"
#include "tests/support/patched_import.h"
#include "tests/support/test_profiler.h"

#include <oleauto.h>

#include <intrin.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace {

using corvane::ComPtr;
using corvane::measuring::median;
using corvane::measuring::nanoseconds_a_tick;
using corvane::testing::PatchedImport;

// --- The profiler

HMODULE profiler = nullptr;
ComPtr<ICorProfilerInfo2> info;
std::mutex threads_lock;
std::map<DWORD, ThreadID> threads;

class Probe final : public corvane::testing::ImmortalProfiler {
public:
    HRESULT STDMETHODCALLTYPE Initialize(IUnknown* unknown) override {
        using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, LPVOID*);
        constexpr CLSID kClass = {
            0x5D3A9C71, 0x0B6E, 0x4F28, {0x9A, 0x41, 0x7C, 0x2E, 0x8B, 0x04, 0xD1, 0xF6}};
        profiler = LoadLibraryW(_wgetenv(L"CORVANE_PROBE"));
        if (profiler == nullptr) {
            return HRESULT_FROM_WIN32(GetLastError());
        }
        const auto get_class_object = reinterpret_cast<GetClassObject>(
            reinterpret_cast<void*>(GetProcAddress(profiler, "DllGetClassObject")));
        ComPtr<IClassFactory> factory;
        HRESULT hr = get_class_object(kClass, __uuidof(IClassFactory), factory.put_void());
        if (SUCCEEDED(hr)) {
            hr = factory->CreateInstance(nullptr, __uuidof(ICorProfilerCallback3),
                                         probed_.put_void());
        }
        if (SUCCEEDED(hr)) {
            hr = unknown->QueryInterface(__uuidof(ICorProfilerInfo2), info.put_void());
        }
        return SUCCEEDED(hr) ? probed_->Initialize(unknown) : hr;
    }

    HRESULT STDMETHODCALLTYPE ThreadAssignedToOSThread(ThreadID thread, DWORD os_thread) override {
        {
            const std::lock_guard lock(threads_lock);
            threads[os_thread] = thread;
        }
        return probed_->ThreadAssignedToOSThread(thread, os_thread);
    }

    HRESULT STDMETHODCALLTYPE ThreadDestroyed(ThreadID thread) override {
        return probed_->ThreadDestroyed(thread);
    }

private:
    ComPtr<ICorProfilerCallback3> probed_;
};

// --- A snapshot of the profiler, and where its time goes

// The ends of its parts, in ticks of the processor's clock.
enum Mark { kCalled, kStarted, kOpened, kSuspended, kContext, kWalked, kResumed, kEnded, kDone };
constexpr std::size_t kMarks = kDone + 1;
using Marks = std::array<std::uint64_t, kMarks>;
Marks marks;

void mark(Mark which) {
    marks[which] = __rdtsc();
}

HANDLE WINAPI marked_open(DWORD access, BOOL is_inheritable, DWORD thread);
DWORD WINAPI marked_suspend(HANDLE thread);
BOOL WINAPI marked_context(HANDLE thread, CONTEXT* context);
DWORD WINAPI marked_resume(HANDLE thread);
SAFEARRAY* WINAPI marked_array(VARTYPE type, UINT dimensions, SAFEARRAYBOUND* bounds);

// In the profiler's imports from the first measurement on.
struct Imports {
    PatchedImport<decltype(OpenThread)> open{"OpenThread", &marked_open, profiler};
    PatchedImport<decltype(SuspendThread)> suspend{"SuspendThread", &marked_suspend, profiler};
    PatchedImport<decltype(GetThreadContext)> context{"GetThreadContext", &marked_context,
                                                      profiler};
    PatchedImport<decltype(ResumeThread)> resume{"ResumeThread", &marked_resume, profiler};
    PatchedImport<decltype(SafeArrayCreate)> array{"SafeArrayCreate", &marked_array, profiler};
};
const Imports* imports = nullptr;

HANDLE WINAPI marked_open(DWORD access, BOOL is_inheritable, DWORD thread) {
    mark(kStarted);
    const HANDLE handle = imports->open.original()(access, is_inheritable, thread);
    mark(kOpened);
    return handle;
}
DWORD WINAPI marked_suspend(HANDLE thread) {
    const DWORD count = imports->suspend.original()(thread);
    mark(kSuspended);
    return count;
}
BOOL WINAPI marked_context(HANDLE thread, CONTEXT* context) {
    const BOOL has_succeeded = imports->context.original()(thread, context);
    mark(kContext);
    return has_succeeded;
}
// A worker is started by resuming it as well; the later marks are the ones that stay.
DWORD WINAPI marked_resume(HANDLE thread) {
    mark(kWalked);
    const DWORD count = imports->resume.original()(thread);
    mark(kResumed);
    return count;
}
SAFEARRAY* WINAPI marked_array(VARTYPE type, UINT dimensions, SAFEARRAYBOUND* bounds) {
    mark(kEnded);
    return imports->array.original()(type, dimensions, bounds);
}

using TakeSnapshot = std::int32_t (*)(std::uint32_t, SAFEARRAY**, std::int32_t*, std::uint64_t*);

// The frames that a snapshot has, or a negative number when there is none.
std::int32_t snapshot(TakeSnapshot take, DWORD os_thread) {
    SAFEARRAY* frames = nullptr;
    std::int32_t count = 0;
    std::uint64_t timestamp = 0;
    mark(kCalled);
    const std::int32_t status = take(os_thread, &frames, &count, &timestamp);
    mark(kDone);
    SafeArrayDestroy(frames);
    return status == 0 ? count : -1;
}

// --- The same calls by hand

struct ByHand {
    DWORD os_thread;
    ThreadID thread;
    std::vector<double> frames;
};

HRESULT STDMETHODCALLTYPE keep_frame(FunctionID function, UINT_PTR, COR_PRF_FRAME_INFO, ULONG32,
                                     BYTE*, void* frames) {
    if (function != 0) {
        static_cast<std::vector<double>*>(frames)->push_back(static_cast<double>(function));
    }
    return S_OK;
}

DWORD WINAPI walk_by_hand(void* argument) {
    auto& target = *static_cast<ByHand*>(argument);
    const HANDLE thread =
        OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | THREAD_QUERY_INFORMATION, FALSE,
                   target.os_thread);
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_FULL;
    SuspendThread(thread);
    GetThreadContext(thread, &context);
    info->DoStackSnapshot(target.thread, keep_frame, 0, &target.frames, nullptr, 0);
    ResumeThread(thread);
    CloseHandle(thread);
    return 0;
}

// Its duration in ticks.
std::uint64_t snapshot_by_hand(ByHand& target) {
    const std::uint64_t before = __rdtsc();
    target.frames.clear();
    const HANDLE worker = CreateThread(nullptr, 0, walk_by_hand, &target, 0, nullptr);
    WaitForSingleObject(worker, INFINITE);
    CloseHandle(worker);
    SAFEARRAYBOUND bound = {static_cast<ULONG>(target.frames.size()), 0};
    SAFEARRAY* const array = SafeArrayCreate(VT_R8, 1, &bound);
    std::copy(target.frames.begin(), target.frames.end(), static_cast<double*>(array->pvData));
    const std::uint64_t after = __rdtsc();
    SafeArrayDestroy(array);
    return after - before;
}

} // namespace

// In microseconds, each the median of its own; the last one is no time.
struct Measured {
    double parts[kMarks - 1]; // up to each mark, from the one before
    double total;
    double suspended; // from the call that suspends to the end of the one that resumes
    double by_hand;
    double frames;
};

// Measures snapshots of a thread that stays where it is. They take turns with those made by hand,
// so that a machine that is busy for a while is busy for both. False when a snapshot failed.
extern "C" __declspec(dllexport) BOOL
    Measure(std::uint32_t os_thread, std::int32_t count, Measured* result) {
    static const Imports patched;
    imports = &patched;
    const auto take = reinterpret_cast<TakeSnapshot>(
        reinterpret_cast<void*>(GetProcAddress(profiler, "TakeSnapshot")));
    ByHand target = {os_thread, 0, {}};
    {
        const std::lock_guard lock(threads_lock);
        target.thread = threads[os_thread];
    }
    target.frames.reserve(2000);
    const double microseconds = nanoseconds_a_tick() / 1000;
    std::array<std::vector<double>, kMarks - 1> parts;
    std::vector<double> total;
    std::vector<double> suspended;
    std::vector<double> by_hand;
    const auto passed = [microseconds](std::uint64_t from, std::uint64_t to) {
        return microseconds * static_cast<double>(to - from);
    };
    for (std::int32_t i = 0; i < count; ++i) {
        const std::int32_t frames = snapshot(take, os_thread);
        const Marks taken = marks;
        by_hand.push_back(passed(0, snapshot_by_hand(target)));
        if (frames < 0 || target.frames.size() != static_cast<std::size_t>(frames)) {
            return FALSE;
        }
        for (std::size_t part = 0; part < parts.size(); ++part) {
            parts[part].push_back(passed(taken[part], taken[part + 1]));
        }
        total.push_back(passed(taken[kCalled], taken[kDone]));
        suspended.push_back(passed(taken[kOpened], taken[kResumed]));
        result->frames = frames;
    }
    for (std::size_t part = 0; part < parts.size(); ++part) {
        result->parts[part] = median(parts[part]);
    }
    result->total = median(total);
    result->suspended = median(suspended);
    result->by_hand = median(by_hand);
    return TRUE;
}

IClassFactory& corvane::testing::test_profiler_factory() {
    static auto& factory = *new corvane::testing::ProfilerFactory<Probe>(); // outlives everything
    return factory;
}
