// What the workers and the walk's callback return, which nobody but the runtime reads, and the
// order in which a snapshot is announced.
#include "base/runtime_state.h"
#include "sampling/automation.h"
#include "sampling/frame_list.h"
#include "sampling/function_names.h"
#include "sampling/known_functions.h"
#include "sampling/snapshot.h"
#include "sampling/thread_map.h"
#include "tests/support/fake_method.h"
#include "tests/support/fake_stack.h"
#include "tests/support/parked_thread.h"
#include "tests/support/patched_import.h"
#include "tests/support/raised.h"
#include "tests/support/thread_calls.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

namespace corvane {
namespace {

using testing::FakeMethod;
using testing::FakeStack;
using testing::ParkedThread;
using testing::PatchedImport;
using testing::ThreadCalls;

constexpr ThreadID kThread = 0x7FF0000000D1;

class WorkerResults : public ::testing::Test {
protected:
    WorkerResults() {
        profilerInfo2 = ComPtr<ICorProfilerInfo2>(&runtime);
        on_thread_assigned(kThread, target.id());
        runtime.frames = {0x10, 0x20};
        request.osThreadId = static_cast<std::int32_t>(target.id());
    }
    ~WorkerResults() override {
        profilerInfo2.reset();
        ThreadMap.clear();
        forget_functions_of(1);
    }

    FakeStack runtime;
    ParkedThread target;
    CorvaneSnapshot request;
};

TEST_F(WorkerResults, AreThoseOfTheWalk) {
    EXPECT_EQ(Thread_Do_Stack_Snapshot(&request), S_OK);
    EXPECT_EQ(request.status, 0);
    for (const HRESULT result : {E_FAIL, CORPROF_E_STACKSNAPSHOT_UNSAFE, S_FALSE}) {
        runtime.result = result;
        EXPECT_EQ(Thread_Do_Stack_Snapshot(&request), result);
        EXPECT_EQ(request.status, 2);
    }
}

TEST_F(WorkerResults, AreOneWithoutATarget) {
    on_thread_destroyed(kThread);
    EXPECT_EQ(Thread_Do_Stack_Snapshot(&request), 1);
    EXPECT_EQ(request.status, 0);
    request.osThreadId = 4; // never announced
    EXPECT_EQ(Thread_Do_Stack_Snapshot(&request), 1);
    EXPECT_EQ(request.status, 0);
}

TEST_F(WorkerResults, AreOneWithoutAThreadThatCanBeSuspended) {
    for (const char* const failing : {"OpenThread", "SuspendThread"}) {
        ThreadCalls calls;
        calls.failing = failing;
        EXPECT_EQ(Thread_Do_Stack_Snapshot(&request), 1) << failing;
        EXPECT_EQ(request.status, 0);
        if (calls.sequence() == "OS") {
            CloseHandle(calls.handle); // is left open
        }
    }
}

// Here the thread was not suspended before.
TEST_F(WorkerResults, AreTheSuspendCountWithoutAContext) {
    ThreadCalls calls;
    calls.failing = "GetThreadContext";
    for (const HRESULT count : {0, 1}) {
        EXPECT_EQ(Thread_Do_Stack_Snapshot(&request), count);
        EXPECT_EQ(request.status, 2);
        CloseHandle(calls.handle); // is left open
    }
    target.resume();
    target.resume();
    set_snapshot_target(kNoSnapshotTarget);
}

LPVOID WINAPI no_pages(LPVOID, SIZE_T, DWORD, DWORD) {
    return nullptr;
}

TEST_F(WorkerResults, OfTheCallbackEndAWalkWithoutMemory) {
    ASSERT_EQ(Thread_Do_Stack_Snapshot(&request), S_OK); // the runtime has the callback
    FrameList frames;
    for (std::size_t i = 0; i < FrameList::kReserved; ++i) {
        ASSERT_EQ(runtime.callback(0x10, 0, 0, 0, nullptr, &frames), S_OK);
    }
    const PatchedImport patch("VirtualAlloc", &no_pages);
    EXPECT_EQ(runtime.callback(0x10, 0, 0, 0, nullptr, &frames), E_OUTOFMEMORY);
    EXPECT_EQ(runtime.callback(0, 0, 0, 0, nullptr, &frames), S_OK); // nothing to keep
    EXPECT_EQ(frames.frames().size(), FrameList::kReserved);
}

std::int64_t announced = 0;
DWORD WINAPI note_announcement(HANDLE) {
    announced = snapshotTargetThread;
    return static_cast<DWORD>(-1);
}

TEST_F(WorkerResults, ComeAfterTheTargetIsAnnounced) {
    announced = 0;
    const PatchedImport patch("SuspendThread", &note_announcement);
    EXPECT_EQ(Thread_Do_Stack_Snapshot(&request), 1);
    EXPECT_EQ(announced, static_cast<std::int64_t>(target.id()));
    EXPECT_EQ(snapshotTargetThread, kNoSnapshotTarget);
}

TEST(NameWorker, SucceedsWhateverItFinds) {
    CorvaneFunctionNames none;
    EXPECT_EQ(Thread_Function_Names_App(&none), S_OK);
    CorvaneFunctionNames unknown(2);
    EXPECT_EQ(Thread_Function_Names_App(&unknown), S_OK);
    EXPECT_EQ(unknown[0].typeName.get(), nullptr);
}

// The runtime may succeed without giving any: it is no method with metadata.
TEST(NameWorker, LeavesTheNamesNullWithoutMetadata) {
    FakeMethod runtime;
    runtime.has_metadata = false;
    profilerInfo2 = ComPtr<ICorProfilerInfo2>(&runtime);
    note_walked_functions(begin_walk(), std::vector<FunctionID>{0xF1});
    CorvaneFunctionNames request(1);
    request[0].functionId = 0xF1;
    EXPECT_EQ(Thread_Function_Names_App(&request), S_OK);
    EXPECT_EQ(request[0].typeName.get(), nullptr);
    EXPECT_EQ(request[0].methodName.get(), nullptr);
    EXPECT_EQ(runtime.calls.back(), "GetTokenAndMetaDataFromFunction(F1, IMetaDataImport)");
    profilerInfo2.reset();
    forget_functions_of(1);
}

// Blocks of this program that were taken and not given back.
std::atomic<long> alive = 0;
void* (*take_block)(std::size_t) = nullptr;
void (*give_block)(void*) = nullptr;
void* counted_take(std::size_t size) {
    ++alive;
    return take_block(size);
}
void counted_give(void* block) {
    alive -= block != nullptr ? 1 : 0;
    give_block(block);
}
BSTR WINAPI no_copy(LPCSTR, UINT) {
    return nullptr;
}

TEST(NameArray, IsGivenBackWhenANameCannotBeCopied) {
    FakeMethod runtime;
    runtime.writes_down = false;
    profilerInfo2 = ComPtr<ICorProfilerInfo2>(&runtime);
    note_walked_functions(begin_walk(), std::vector<FunctionID>{0xF1});
    const double id = 0xF1;
    const double* const ids[] = {&id};
    const auto fail = [&] {
        FunctionNameRecord* records = nullptr;
        const PatchedImport patch("SysAllocStringByteLen", &no_copy);
        EXPECT_EQ(testing::raised_by([&] { GetFunctionNames(ids, 1, &records); }), E_OUTOFMEMORY);
        EXPECT_EQ(records, nullptr);
    };
    fail(); // what is made once is made
    constexpr int kTimes = 100;
    {
        const PatchedImport<void*(std::size_t)> take("malloc", &counted_take);
        const PatchedImport<void(void*)> give("free", &counted_give);
        take_block = take.original();
        give_block = give.original();
        alive = 0;
        for (int i = 0; i < kTimes; ++i) {
            fail();
        }
    }
    EXPECT_LT(alive, kTimes);
    profilerInfo2.reset();
    forget_functions_of(1);
}

BSTR WINAPI no_string(const OLECHAR*) {
    return nullptr;
}

// Of no text nothing is no failure.
TEST(EmptyBstr, MayBeNull) {
    const PatchedImport patch("SysAllocString", &no_string);
    EXPECT_EQ(Bstr(L"").get(), nullptr);
    EXPECT_THROW(Bstr(L"a"), ResultError);
}

} // namespace
} // namespace corvane
