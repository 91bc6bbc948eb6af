#include "sampling/snapshot.h"

#include "base/hresult_text.h"
#include "base/log_output.h"
#include "base/runtime_state.h"
#include "sampling/known_functions.h"
#include "sampling/thread_map.h"
#include "tests/support/allocations.h"
#include "tests/support/debug_output.h"
#include "tests/support/fake_stack.h"
#include "tests/support/parked_thread.h"
#include "tests/support/patched_import.h"
#include "tests/support/raised.h"
#include "tests/support/thread_calls.h"

#include <gmock/gmock.h>

#include <process.h>

#include <atomic>
#include <filesystem>
#include <set>
#include <thread>
#include <type_traits>
#include <vector>

namespace corvane {
namespace {

using ::testing::ElementsAre;
using testing::FakeStack;
using testing::kNoThread;
using ::testing::Pair;
using testing::ParkedThread;
using testing::PatchedImport;
using testing::raised_by;
using testing::ThreadCalls;

constexpr ThreadID kThread = 0x7FF0000000D1;

// What one call of the export gave, the array owned.
struct Taken {
    Taken() = default;
    Taken(const Taken&) = delete;
    Taken& operator=(const Taken&) = delete;
    ~Taken() { SafeArrayDestroy(frames); }

    std::int32_t status = -1;
    // Not what the export leaves there.
    SAFEARRAY* frames = nullptr;
    std::int32_t count = -1;
    std::uint64_t timestamp = 1;

    void take(DWORD os_thread) { status = TakeSnapshot(os_thread, &frames, &count, &timestamp); }

    std::vector<double> values() const {
        const auto* const first = static_cast<const double*>(frames->pvData);
        return {first, first + frames->rgsabound[0].cElements};
    }

    void expect_success(const std::vector<double>& expected) const {
        EXPECT_EQ(status, 0);
        EXPECT_EQ(count, static_cast<std::int32_t>(expected.size()));
        ASSERT_NE(frames, nullptr);
        VARTYPE type = VT_EMPTY;
        EXPECT_EQ(SafeArrayGetVartype(frames, &type), S_OK);
        EXPECT_EQ(type, VT_R8);
        EXPECT_EQ(SafeArrayGetDim(frames), 1U);
        EXPECT_EQ(frames->rgsabound[0].lLbound, 0);
        EXPECT_EQ(frames->cLocks, 0U);
        EXPECT_EQ(values(), expected);
        EXPECT_GT(timestamp, 1'500'000'000'000'000U);
    }

    void expect_failure() const {
        EXPECT_EQ(status, 2);
        EXPECT_EQ(frames, nullptr);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(timestamp, 0U);
    }
};

DWORD handle_count() {
    DWORD count = 0;
    GetProcessHandleCount(GetCurrentProcess(), &count);
    return count;
}

class SnapshotTest : public ::testing::Test {
protected:
    SnapshotTest() {
        profilerInfo2 = ComPtr<ICorProfilerInfo2>(&runtime);
        on_thread_assigned(kThread, target.id());
        runtime.frames = {0x10, 0x20, 0x30};
    }
    ~SnapshotTest() override {
        profilerInfo2.reset();
        ThreadMap.clear();
        forget_functions_of(1); // all of them
        EXPECT_EQ(snapshotTargetThread, -1);
        EXPECT_EQ(target.suspend_count(), 0U);
    }

    FakeStack runtime;
    ParkedThread target;
    Taken taken;
};

// --- Arguments

TEST_F(SnapshotTest, RefusesNullInEveryPosition) {
    const auto reset = [this] {
        taken.count = -1;
        taken.timestamp = 1;
        taken.frames = reinterpret_cast<SAFEARRAY*>(8);
    };
    const ThreadCalls calls;
    const DWORD id = target.id();

    reset();
    EXPECT_EQ(TakeSnapshot(id, nullptr, &taken.count, &taken.timestamp), 1);
    EXPECT_EQ(taken.count, -1);
    EXPECT_EQ(taken.timestamp, 1U);

    reset();
    EXPECT_EQ(TakeSnapshot(id, &taken.frames, nullptr, &taken.timestamp), 1);
    EXPECT_EQ(taken.frames, nullptr);
    EXPECT_EQ(taken.timestamp, 1U);

    reset();
    EXPECT_EQ(TakeSnapshot(id, &taken.frames, &taken.count, nullptr), 1);
    EXPECT_EQ(taken.frames, nullptr);
    EXPECT_EQ(taken.count, 0);

    reset();
    EXPECT_EQ(TakeSnapshot(id, &taken.frames, nullptr, nullptr), 1);
    EXPECT_EQ(taken.frames, nullptr);

    reset();
    EXPECT_EQ(TakeSnapshot(id, nullptr, nullptr, &taken.timestamp), 1);
    EXPECT_EQ(TakeSnapshot(id, nullptr, &taken.count, nullptr), 1);
    EXPECT_EQ(TakeSnapshot(id, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(taken.count, -1);
    EXPECT_EQ(taken.timestamp, 1U);

    taken.frames = nullptr;
    EXPECT_EQ(calls.sequence(), "");
    EXPECT_THAT(ThreadMap, ElementsAre(Pair(id, kThread)));
}

TEST_F(SnapshotTest, FailsForAThreadThatWasNeverAnnounced) {
    ThreadMap.clear();
    const ThreadCalls calls;
    taken.frames = reinterpret_cast<SAFEARRAY*>(8); // forgotten, not freed
    taken.take(4321);
    taken.expect_failure();
    EXPECT_EQ(calls.sequence(), "");
    EXPECT_THAT(ThreadMap, ElementsAre(Pair(4321U, 0U)));
}

// --- What is given

TEST_F(SnapshotTest, GivesTheFramesInnermostFirst) {
    taken.take(target.id());
    taken.expect_success({0x10, 0x20, 0x30});
}

TEST_F(SnapshotTest, LeavesNativeFramesOut) {
    runtime.frames = {0, 0x10, 0, 0, 0x20, 0};
    taken.take(target.id());
    taken.expect_success({0x10, 0x20});
    EXPECT_EQ(runtime.reported, 6U);
}

TEST_F(SnapshotTest, GivesAnEmptyArrayForNativeFramesOnly) {
    runtime.frames = {0, 0};
    taken.take(target.id());
    taken.expect_success({});
}

TEST_F(SnapshotTest, GivesAnEmptyArrayForAnEmptyStack) {
    runtime.frames = {};
    taken.take(target.id());
    taken.expect_success({});
}

TEST_F(SnapshotTest, GivesIdsAsUnsignedNumbers) {
    runtime.frames = {1, (FunctionID(1) << 53) + 1, FunctionID(1) << 63, ~FunctionID(0)};
    taken.take(target.id());
    taken.expect_success({1, 0x1p53, 0x1p63, 0x1p64});
}

TEST_F(SnapshotTest, GivesEveryFrameOfADeepStack) {
    std::vector<double> expected;
    runtime.frames.clear();
    for (unsigned i = 1; i <= 100'000; ++i) {
        runtime.frames.push_back(i);
        expected.push_back(i);
    }
    taken.take(target.id());
    taken.expect_success(expected);
}

TEST_F(SnapshotTest, TellsWhenItWasTaken) {
    taken.take(target.id());
    const std::uint64_t first = taken.timestamp;
    Sleep(100);
    Taken later;
    later.take(target.id());
    EXPECT_GE(later.timestamp - first, 99'000U);
    EXPECT_LT(later.timestamp - first, 60'000'000U);
}

// --- How it is taken

TEST_F(SnapshotTest, AsksTheRuntimeForTheWholeStackWithoutASeed) {
    taken.take(target.id());
    EXPECT_EQ(runtime.thread, kThread);
    EXPECT_EQ(runtime.flags, 0U);
    EXPECT_EQ(runtime.seed, nullptr);
    EXPECT_EQ(runtime.seed_size, 0U);
}

TEST_F(SnapshotTest, EndsAWalkWithoutAListAndPassesNativeFramesOver) {
    taken.take(target.id());
    EXPECT_EQ(runtime.callback(0x10, 0, 0, 0, nullptr, nullptr), S_FALSE);
    EXPECT_EQ(runtime.callback(0, 0, 0, 0, nullptr, nullptr), S_FALSE);
    EXPECT_EQ(runtime.callback(0, 0, 0, 0, nullptr, &runtime), S_OK);
}

TEST_F(SnapshotTest, SuspendsTheTargetForTheWalk) {
    ThreadCalls calls;
    DWORD suspended = 0;
    std::int64_t sampled = 0;
    bool are_locks_free = false;
    runtime.during_walk = [&] {
        calls.note('W');
        suspended = target.suspend_count();
        using Lock = boost::mutex::scoped_try_lock;
        are_locks_free = Lock(ThreadMapMutex).owns_lock() && Lock(SnapshotTargetMutex).owns_lock();
        sampled = snapshotTargetThread;
    };
    taken.take(target.id());
    taken.expect_success({0x10, 0x20, 0x30});
    EXPECT_EQ(calls.sequence(), "OSCWRX");
    EXPECT_EQ(suspended, 1U);
    EXPECT_EQ(sampled, static_cast<std::int64_t>(target.id()));
    EXPECT_TRUE(are_locks_free);
    EXPECT_EQ(calls.access, 0x4AU);
    EXPECT_EQ(calls.is_inheritable, FALSE);
    EXPECT_EQ(calls.os_thread, target.id());
    EXPECT_EQ(calls.context_flags, 0x10000BU);
}

TEST_F(SnapshotTest, WalksOnAFreshThreadEachTime) {
    // While a thread is open no other one gets its id.
    std::vector<OwnedHandle> workers;
    std::set<DWORD> ids = {GetCurrentThreadId(), target.id()};
    runtime.during_walk = [&] {
        workers.emplace_back(OpenThread(SYNCHRONIZE, FALSE, GetCurrentThreadId()));
    };
    for (int i = 0; i < 3; ++i) {
        Taken one;
        one.take(target.id());
        EXPECT_TRUE(ids.insert(runtime.walker).second);
    }
    ASSERT_EQ(workers.size(), 3U);
    for (const OwnedHandle& worker : workers) {
        EXPECT_EQ(WaitForSingleObject(worker.get(), 0), WAIT_OBJECT_0);
    }
}

TEST_F(SnapshotTest, AppendsToWhatTheRequestHolds) {
    CorvaneSnapshot request;
    request.frames = {1, 2};
    request.osThreadId = static_cast<std::int32_t>(target.id());
    EXPECT_EQ(Thread_Do_Stack_Snapshot(&request), S_OK);
    EXPECT_THAT(request.frames, ElementsAre(1, 2, 0x10, 0x20, 0x30));
}

// A thread on its way out waits, also when it runs while it is told.
TEST_F(SnapshotTest, LetsTheTargetNotEndBeforeTheWalk) {
    std::atomic<bool> has_ended = false;
    std::jthread ending;
    runtime.during_walk = [&] {
        ending = std::jthread([&] {
            on_thread_destroyed(kThread);
            has_ended = true;
        });
        Sleep(50);
        EXPECT_FALSE(has_ended);
    };
    taken.take(target.id());
    ending.join();
    taken.expect_success({0x10, 0x20, 0x30});
    EXPECT_TRUE(has_ended);
    Taken later;
    later.take(target.id());
    later.expect_success({});
}

TEST_F(SnapshotTest, MakesTheFunctionsKnown) {
    runtime.frames = {0, 0x1010, 0x2020};
    EXPECT_FALSE(KnownFunction(0x1010));
    taken.take(target.id());
    EXPECT_TRUE(KnownFunction(0x1010));
    EXPECT_TRUE(KnownFunction(0x2020));
    EXPECT_FALSE(KnownFunction(0));
}

TEST_F(SnapshotTest, KeepsTheSignOfTheTargetsId) {
    constexpr DWORD kLargeId = 0x80000004;
    on_thread_assigned(kThread, kLargeId);
    ThreadCalls calls;
    calls.opened_instead = target.id();
    std::int64_t sampled = 0;
    runtime.during_walk = [&] { sampled = snapshotTargetThread; };
    taken.take(kLargeId);
    taken.expect_success({0x10, 0x20, 0x30});
    EXPECT_EQ(calls.os_thread, kLargeId);
    EXPECT_EQ(sampled, -0x7FFFFFFCLL);
}

TEST_F(SnapshotTest, TakesNothingFromTheHeapWhileTheTargetIsSuspended) {
    for (const std::size_t depth : {0, 1, 1024, 1025, 10'000}) {
        runtime.frames.assign(depth, 0x10);
        const ThreadCalls calls;
        Taken one;
        one.take(target.id());
        EXPECT_EQ(one.count, static_cast<std::int32_t>(depth));
        EXPECT_EQ(calls.sequence(), "OSCRX");
        EXPECT_EQ(calls.requests_while_suspended(), 0U) << depth;
    }
}

TEST_F(SnapshotTest, LeavesNoHandleBehind) {
    taken.take(target.id());
    const DWORD before = handle_count();
    for (int i = 0; i < 100; ++i) {
        Taken one;
        one.take(target.id());
    }
    runtime.result = E_FAIL;
    for (int i = 0; i < 100; ++i) {
        Taken one;
        one.take(target.id());
    }
    EXPECT_EQ(handle_count(), before);
}

TEST_F(SnapshotTest, ServesManyCallersAtOnce) {
    const ParkedThread other;
    on_thread_assigned(kThread + 8, other.id());
    runtime.frames_of[kThread + 8] = {0x40, 0x50};
    const std::vector<double> of_target = {0x10, 0x20, 0x30};
    const std::vector<double> of_other = {0x40, 0x50};
    std::atomic<int> succeeded = 0;
    {
        std::vector<std::jthread> callers;
        for (int caller = 0; caller < 4; ++caller) {
            callers.emplace_back([&, is_target = caller % 2 == 0] {
                for (int i = 0; i < 50; ++i) {
                    Taken one;
                    one.take(is_target ? target.id() : other.id());
                    succeeded +=
                        one.status == 0 && one.values() == (is_target ? of_target : of_other) ? 1
                                                                                              : 0;
                }
            });
        }
    }
    EXPECT_EQ(succeeded, 200);
    EXPECT_EQ(other.suspend_count(), 0U);
}

// --- Failures

// The worker's thread is about to start: the last moment before it looks the target up.
std::uintptr_t start_after_the_target_is_gone(void* security, unsigned stack_size,
                                              unsigned(__stdcall* entry)(void*), void* argument,
                                              unsigned flags, unsigned* id) {
    ThreadMap.clear();
    return reinterpret_cast<std::uintptr_t>(
        CreateThread(static_cast<SECURITY_ATTRIBUTES*>(security), stack_size,
                     reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(entry)),
                     argument, flags, reinterpret_cast<DWORD*>(id)));
}

TEST_F(SnapshotTest, SucceedsWithoutFramesWhenTheTargetIsGone) {
    const PatchedImport patch("_beginthreadex", &start_after_the_target_is_gone);
    const ThreadCalls calls;
    taken.take(target.id());
    taken.expect_success({});
    EXPECT_EQ(calls.sequence(), "");
    EXPECT_THAT(ThreadMap, ElementsAre(Pair(target.id(), 0U)));
}

TEST_F(SnapshotTest, DoesNotSuspendAWorkerThatGotTheTargetsId) {
    on_thread_assigned(kThread, GetCurrentThreadId());
    CorvaneSnapshot request;
    request.osThreadId = static_cast<std::int32_t>(GetCurrentThreadId());
    const ThreadCalls calls;
    EXPECT_EQ(Thread_Do_Stack_Snapshot(&request), 1);
    EXPECT_EQ(request.status, 0);
    EXPECT_THAT(request.frames, ::testing::IsEmpty());
    EXPECT_EQ(calls.sequence(), "");
}

// The map still names a thread for it, whose memory the runtime has freed.
TEST_F(SnapshotTest, DoesNotSuspendAThreadThatGotTheTargetsId) {
    on_thread_destroyed(kThread);
    ASSERT_EQ(find_thread(target.id()), kThread);
    const ThreadCalls calls;
    taken.take(target.id());
    taken.expect_success({});
    EXPECT_EQ(calls.sequence(), "");
    EXPECT_EQ(runtime.walker, 0U);
}

TEST_F(SnapshotTest, SucceedsWithoutFramesWhenTheTargetHasEnded) {
    DWORD ended = 0;
    {
        const ParkedThread other;
        ended = other.id();
    }
    on_thread_assigned(kThread, ended);
    const ThreadCalls calls;
    taken.take(ended);
    taken.expect_success({});
    EXPECT_EQ(calls.sequence(), "O");
}

TEST_F(SnapshotTest, SucceedsWithoutFramesWhenTheTargetCannotBeOpened) {
    ThreadCalls calls;
    calls.failing = "OpenThread";
    taken.take(target.id());
    taken.expect_success({});
    EXPECT_EQ(calls.sequence(), "O");
}

TEST_F(SnapshotTest, SucceedsWithoutFramesAndLeavesTheHandleWhenTheTargetCannotBeSuspended) {
    ThreadCalls calls;
    calls.failing = "SuspendThread";
    taken.take(target.id());
    taken.expect_success({});
    EXPECT_EQ(calls.sequence(), "OS");
    EXPECT_EQ(GetThreadId(calls.handle), target.id());
    CloseHandle(calls.handle);
}

TEST_F(SnapshotTest, FailsAndLeavesTheTargetSuspendedWithoutItsContext) {
    ThreadCalls calls;
    calls.failing = "GetThreadContext";
    taken.take(target.id());
    taken.expect_failure();
    EXPECT_EQ(calls.sequence(), "OSC");
    EXPECT_EQ(runtime.walker, 0U);
    EXPECT_EQ(target.suspend_count(), 1U);
    EXPECT_EQ(GetThreadId(calls.handle), target.id());
    EXPECT_EQ(snapshotTargetThread, static_cast<std::int64_t>(target.id()));

    target.resume();
    CloseHandle(calls.handle);
    set_snapshot_target(kNoSnapshotTarget);
}

constexpr const wchar_t* kWalkFailed =
    L"CClrProfiler::Thread_Do_Stack_Snapshot().DoStackSnapshot() did not return S_OK ";

// --- The log's file

ThreadCalls* noting = nullptr;
decltype(&WriteFile) real_write = nullptr;
BOOL WINAPI note_write(HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written,
                       LPOVERLAPPED overlapped) {
    if (noting != nullptr) {
        noting->note('W');
    }
    return real_write(file, bytes, size, written, overlapped);
}

// Everything is logged, to a file. Every walk fails, so that the worker has a line as well.
class LoggedSnapshotTest : public SnapshotTest {
protected:
    LoggedSnapshotTest() {
        real_write = writing_.original();
        begin_log({.file = file_.wstring(), .limit = 1U << 30, .level = 4, .complaints = {}});
        runtime.result = E_FAIL;
    }
    ~LoggedSnapshotTest() override {
        noting = nullptr;
        end_log_file(false);
        begin_log({.file = {}, .limit = 0, .level = 3, .complaints = {}});
        std::filesystem::remove(file_);
    }

    const std::filesystem::path file_ =
        std::filesystem::temp_directory_path() /
        ("corvane snapshots " + std::to_string(GetCurrentProcessId()) + ".log");
    const PatchedImport<std::remove_pointer_t<decltype(&WriteFile)>> writing_{"WriteFile",
                                                                              note_write};
};

TEST_F(LoggedSnapshotTest, WritesItsLineWhenTheTargetRunsAgain) {
    ThreadCalls calls;
    noting = &calls;
    taken.take(target.id());
    taken.expect_failure();
    EXPECT_EQ(calls.sequence(), "OSCRXW");
}

// Such a thread may be suspended with the lock of the file.
TEST_F(LoggedSnapshotTest, TakesSnapshotsOfAThreadThatLogs) {
    std::atomic<bool> done = false;
    std::atomic<DWORD> id = 0;
    std::thread logging([&] {
        id = GetCurrentThreadId();
        while (!done) {
            default_log.log(1, L"line");
        }
    });
    while (id == 0) {
        Sleep(1);
    }
    on_thread_assigned(kThread + 1, id);
    for (int i = 0; i < 300; ++i) {
        Taken one;
        one.take(id);
        one.expect_failure();
    }
    done = true;
    logging.join();
}

// Everything but S_OK is a failure. The target runs again by the time that it is told.
TEST_F(SnapshotTest, FailsWhenTheWalkDoes) {
    for (const HRESULT result : {E_FAIL, CORPROF_E_STACKSNAPSHOT_UNSAFE, S_FALSE}) {
        runtime.result = result;
        const testing::DebugOutput output;
        default_log = DebugLog(L"", 4);
        const ThreadCalls calls;
        Taken one;
        one.take(target.id());
        default_log = DebugLog();
        one.expect_failure();
        EXPECT_EQ(calls.sequence(), "OSCRX");
        EXPECT_EQ(calls.requests_while_suspended(), 0U);
        EXPECT_EQ(output.raw(), std::to_wstring(runtime.walker) + L' ' + kWalkFailed +
                                    hresult_text(result).c_str());
        EXPECT_EQ(snapshotTargetThread, -1);
    }
}

int messages_looked_up = 0;
DWORD WINAPI count_messages(DWORD, LPCVOID, DWORD, DWORD, LPWSTR, DWORD, va_list*) {
    ++messages_looked_up;
    return 0;
}

TEST_F(SnapshotTest, DoesNotEvenMakeALineThatIsNotWritten) {
    runtime.result = E_FAIL;
    messages_looked_up = 0;
    const PatchedImport patch("FormatMessageW", &count_messages);
    const testing::DebugOutput output;
    taken.take(target.id());
    taken.expect_failure();
    EXPECT_EQ(output.raw(), L"");
    EXPECT_EQ(messages_looked_up, 0);
}

// The runtime would end the process.
TEST_F(SnapshotTest, SucceedsWithoutAWalkWhenTheTargetHasLeftTheRuntime) {
    runtime.handle_result = E_INVALIDARG;
    const ThreadCalls calls;
    taken.take(target.id());
    taken.expect_success({});
    EXPECT_EQ(calls.sequence(), "OSCRX");
    EXPECT_EQ(runtime.walker, 0U);
}

TEST_F(SnapshotTest, WalksWhenTheRuntimeDoesNotSayWhetherTheTargetHasLeft) {
    for (const HRESULT result : {E_FAIL, E_NOTIMPL, S_FALSE}) {
        runtime.handle_result = result;
        Taken one;
        one.take(target.id());
        one.expect_success({0x10, 0x20, 0x30});
    }
}

TEST_F(SnapshotTest, FailsWithoutARuntime) {
    profilerInfo2.reset();
    const ThreadCalls calls;
    taken.take(target.id());
    taken.expect_failure();
    EXPECT_EQ(calls.sequence(), "OSCRX");
}

LPVOID WINAPI no_pages(LPVOID, SIZE_T, DWORD, DWORD) {
    return nullptr;
}

TEST_F(SnapshotTest, FailsWhenThereIsNoMemoryForADeepStack) {
    runtime.frames.assign(1025, 0x10);
    const PatchedImport patch("VirtualAlloc", &no_pages);
    taken.take(target.id());
    taken.expect_failure();
    EXPECT_EQ(runtime.reported, 1025U);
}

// --- Errors that are raised

std::uintptr_t no_thread(void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned, unsigned*) {
    return 0;
}

TEST_F(SnapshotTest, RaisesWhatKeepsTheWorkerFromStarting) {
    const PatchedImport patch("_beginthreadex", &no_thread);
    EXPECT_EQ(raised_by([&] { taken.take(target.id()); }), kNoThread);
    EXPECT_EQ(taken.frames, nullptr);
    EXPECT_EQ(taken.count, 0);
    EXPECT_EQ(taken.timestamp, 0U);
}

// The code of the error that a snapshot raises when it has the frames.
HRESULT raised(Taken& taken, DWORD os_thread) {
    const HRESULT result = raised_by([&] { taken.take(os_thread); });
    EXPECT_EQ(taken.frames, nullptr);
    EXPECT_EQ(taken.count, 3);
    EXPECT_EQ(taken.timestamp, 0U);
    return result;
}

// Arrays made and not destroyed.
int arrays = 0;
SAFEARRAY* WINAPI no_array(VARTYPE, UINT, SAFEARRAYBOUND*) {
    return nullptr;
}
SAFEARRAY* WINAPI smaller_array(VARTYPE type, UINT, SAFEARRAYBOUND* bound) {
    ++arrays;
    return SafeArrayCreateVector(type, bound->lLbound, bound->cElements - 1);
}
HRESULT WINAPI no_lock(SAFEARRAY*) {
    ++arrays;
    return DISP_E_ARRAYISLOCKED;
}
const decltype(SafeArrayDestroy)* destroy_array = nullptr;
HRESULT WINAPI count_destroyed(SAFEARRAY* array) {
    arrays -= array != nullptr ? 1 : 0;
    return destroy_array(array);
}

class SnapshotArray : public SnapshotTest {
protected:
    SnapshotArray() {
        arrays = 0;
        destroy_array = destroy_.original();
    }
    ~SnapshotArray() override { EXPECT_EQ(arrays, 0); }

private:
    PatchedImport<decltype(SafeArrayDestroy)> destroy_{"SafeArrayDestroy", &count_destroyed};
};

TEST_F(SnapshotArray, RaisesThatItCannotBeMade) {
    const PatchedImport patch("SafeArrayCreate", &no_array);
    EXPECT_EQ(raised(taken, target.id()), E_OUTOFMEMORY);
}

TEST_F(SnapshotArray, RaisesThatItCannotBeLocked) {
    const PatchedImport patch("SafeArrayLock", &no_lock);
    EXPECT_EQ(raised(taken, target.id()), DISP_E_ARRAYISLOCKED);
}

TEST_F(SnapshotArray, RaisesThatAnElementLiesOutside) {
    const PatchedImport patch("SafeArrayCreate", &smaller_array);
    EXPECT_EQ(raised(taken, target.id()), E_INVALIDARG);
}

// Whichever request of memory fails, the target runs on and the next snapshot succeeds.
TEST_F(SnapshotTest, RaisesThatThereIsNoMemory) {
    ThreadMap.clear();
    std::size_t granted = 0;
    for (bool has_failed = true; has_failed; ++granted) {
        on_thread_assigned(kThread, target.id());
        Taken one;
        {
            const testing::FailingAllocation failing(granted);
            if (raised_by([&] { one.take(target.id()); }) == E_OUTOFMEMORY) {
                EXPECT_EQ(one.frames, nullptr);
                EXPECT_EQ(one.timestamp, 0U);
            }
            has_failed = testing::FailingAllocation::has_come();
        }
        EXPECT_EQ(one.status == 0, !has_failed);
        EXPECT_EQ(target.suspend_count(), 0U);
        EXPECT_EQ(snapshotTargetThread, -1);
    }
    EXPECT_GT(granted, 1U);
}

} // namespace
} // namespace corvane
