#include "sampling/thread_map.h"

#include <gmock/gmock.h>

#include <atomic>
#include <optional>
#include <thread>

namespace corvane {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

bool is_running(ThreadID thread, DWORD os_thread) {
    return static_cast<bool>(RunningThread(thread, os_thread));
}

class ThreadMapTest : public ::testing::Test {
protected:
    ~ThreadMapTest() override {
        ThreadMap.clear();
        set_snapshot_target(kNoSnapshotTarget);
    }
};

TEST_F(ThreadMapTest, KeepsTheLastThreadOfAnId) {
    on_thread_assigned(0xD1, 40);
    on_thread_assigned(0xD2, 44);
    on_thread_assigned(0xD3, 40);
    EXPECT_EQ(find_thread(40), 0xD3U);
    EXPECT_EQ(find_thread(44), 0xD2U);
    EXPECT_THAT(ThreadMap, ElementsAre(Pair(40U, 0xD3U), Pair(44U, 0xD2U)));
}

TEST_F(ThreadMapTest, EntersAnIdThatIsLookedUp) {
    EXPECT_EQ(find_thread(40), 0U);
    EXPECT_THAT(ThreadMap, ElementsAre(Pair(40U, 0U)));
}

TEST_F(ThreadMapTest, KeepsThreadsThatEndAndGainsAnEntry) {
    on_thread_assigned(0x7FF0000000D1, 40);
    on_thread_destroyed(0x7FF0000000D1);
    EXPECT_THAT(ThreadMap, ElementsAre(Pair(40U, 0x7FF0000000D1U), Pair(0xD1U, 0U)));
}

TEST_F(ThreadMapTest, RemovesTheEntryThatTheLowBitsOfTheRuntimesIdName) {
    on_thread_assigned(0xD1, 40);
    on_thread_assigned(0xD2, 44);
    on_thread_destroyed(0x7FF00000002C);
    EXPECT_THAT(ThreadMap, ElementsAre(Pair(40U, 0xD1U)));
}

TEST_F(ThreadMapTest, KnowsWhichThreadsRunAndWhere) {
    on_thread_assigned(0xE1, 40);
    EXPECT_TRUE(is_running(0xE1, 40));
    EXPECT_FALSE(is_running(0xE1, 44));
    EXPECT_FALSE(is_running(0xE2, 40));
    on_thread_destroyed(0xE1);
    EXPECT_FALSE(is_running(0xE1, 40));
    // A new thread in the memory of the old one, on another of the system's threads.
    on_thread_assigned(0xE1, 44);
    EXPECT_EQ(find_thread(40), 0xE1U);
    EXPECT_FALSE(is_running(0xE1, 40));
    EXPECT_TRUE(is_running(0xE1, 44));
    on_thread_assigned(0xE1, 40);
    EXPECT_FALSE(is_running(0xE1, 44));
    on_thread_destroyed(0xE1);
}

TEST_F(ThreadMapTest, StartsWithoutASnapshotTarget) {
    EXPECT_EQ(snapshotTargetThread, -1);
}

// A callback on a thread of its own, for one that waits.
class Destruction {
public:
    explicit Destruction(ThreadID thread)
        : thread_([this, thread] {
              on_thread_destroyed(thread);
              is_over = true;
          }) {}
    ~Destruction() { thread_.join(); }
    std::atomic<bool> is_over = false;

private:
    std::thread thread_;
};

// A thread cannot end between the question and its walk.
TEST_F(ThreadMapTest, WaitsForTheWalksOfTheThread) {
    on_thread_assigned(0x7FF0000000E1, 40);
    std::optional<RunningThread> first(std::in_place, 0x7FF0000000E1, 40);
    std::optional<RunningThread> second(std::in_place, 0x7FF0000000E1, 40);
    {
        const Destruction destruction(0x7FF0000000E1);
        Sleep(50);
        EXPECT_FALSE(destruction.is_over);
        EXPECT_EQ(find_thread(44), 0U);               // the lock is not kept while it waits
        EXPECT_FALSE(is_running(0x7FF0000000E1, 40)); // no further walk begins
        first.reset();
        Sleep(50);
        EXPECT_FALSE(destruction.is_over);
        second.reset();
    }
    EXPECT_FALSE(is_running(0x7FF0000000E1, 40));
}

TEST_F(ThreadMapTest, WaitsForNoWalkOfAnotherThread) {
    on_thread_assigned(0x7FF0000000E1, 40);
    on_thread_assigned(0x7FF0000000E2, 44);
    {
        const RunningThread other(0x7FF0000000E2, 44);
        on_thread_destroyed(0x7FF0000000E1);
    }
    on_thread_destroyed(0x7FF0000000E2);
}

TEST_F(ThreadMapTest, AdoptsThreadsThatHaveNotEnded) {
    constexpr ThreadID kPresent = 0x7FF0000000E1;
    constexpr ThreadID kEnded = 0x7FF0000000E2;
    constexpr ThreadID kAnnounced = 0x7FF0000000E3;
    constexpr ThreadID kAgain = 0x7FF0000000E4;
    adopt_thread(kPresent, 40); // before it begins
    EXPECT_FALSE(is_running(kPresent, 40));
    begin_adoption();
    on_thread_destroyed(kEnded);
    on_thread_assigned(kAnnounced, 48);
    on_thread_destroyed(kAgain);
    on_thread_assigned(kAgain, 52); // in the memory of the one that has ended
    for (const auto& [thread, os_thread] :
         {std::pair(kPresent, 40U), std::pair(kEnded, 44U), std::pair(kAnnounced, 56U),
          std::pair(kAgain, 60U), std::pair(ThreadID(0x7FF0000000E5), 0U)}) {
        adopt_thread(thread, os_thread);
    }
    end_adoption();
    EXPECT_TRUE(is_running(kPresent, 40));
    EXPECT_EQ(find_thread(40), kPresent);
    EXPECT_FALSE(is_running(kEnded, 44));
    EXPECT_TRUE(is_running(kAnnounced, 48));
    EXPECT_TRUE(is_running(kAgain, 52));
    EXPECT_EQ(find_thread(0), 0U);
    adopt_thread(0x7FF0000000E6, 64); // when it is over
    EXPECT_FALSE(is_running(0x7FF0000000E6, 64));
    for (const ThreadID thread : {kPresent, kAnnounced, kAgain}) {
        on_thread_destroyed(thread);
    }
}

TEST_F(ThreadMapTest, WaitsForTheEndOfASnapshotOfThatId) {
    set_snapshot_target(0xD1);
    {
        const Destruction destruction(0xD1);
        Sleep(50);
        EXPECT_FALSE(destruction.is_over);
        // Neither lock is kept while it waits.
        EXPECT_EQ(find_thread(40), 0U);
        set_snapshot_target(40);
    }
    EXPECT_THAT(ThreadMap, ElementsAre(Pair(40U, 0U), Pair(0xD1U, 0U)));
}

TEST_F(ThreadMapTest, ComparesAllBitsWithTheSnapshotTarget) {
    set_snapshot_target(0xD1);
    on_thread_destroyed(0x1000000D1);
    set_snapshot_target(static_cast<std::int32_t>(0x80000001));
    on_thread_destroyed(0x80000001);
    {
        const Destruction destruction(0xFFFFFFFF80000001);
        Sleep(50);
        EXPECT_FALSE(destruction.is_over);
        set_snapshot_target(kNoSnapshotTarget);
    }
}

} // namespace
} // namespace corvane
