#include "sampling/thread_map.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

namespace corvane {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

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
