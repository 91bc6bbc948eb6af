#include "sampling/frame_list.h"

#include "tests/support/allocations.h"
#include "tests/support/patched_import.h"

#include <gtest/gtest.h>

#include <new>
#include <vector>

namespace corvane {
namespace {

bool append_all(FrameList& list, FunctionID first, std::size_t count) {
    bool has_room = true;
    for (FunctionID frame = first; frame < first + count; ++frame) {
        has_room = has_room && list.append(frame);
    }
    return has_room;
}

TEST(FrameList, KeepsTheOrderWithoutTheHeapHoweverDeep) {
    for (const std::size_t count : {0, 1, 1023, 1024, 1025, 2048, 2049, 100'000}) {
        const std::size_t before = testing::allocations();
        FrameList list;
        EXPECT_TRUE(append_all(list, 7, count));
        EXPECT_EQ(testing::allocations(), before);
        ASSERT_EQ(list.frames().size(), count);
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_EQ(list.frames()[i], 7 + i);
        }
    }
}

int pages_asked_for = 0;
LPVOID WINAPI no_pages(LPVOID, SIZE_T, DWORD, DWORD) {
    ++pages_asked_for;
    return nullptr;
}

TEST(FrameList, HasRoomForUsualStacksAndSaysWhenThereIsNoMore) {
    pages_asked_for = 0;
    const testing::PatchedImport patch("VirtualAlloc", &no_pages);
    FrameList list;
    EXPECT_TRUE(append_all(list, 0, 1024));
    EXPECT_EQ(pages_asked_for, 0);
    EXPECT_FALSE(list.append(1));
    EXPECT_EQ(pages_asked_for, 1);
    EXPECT_EQ(list.frames().size(), 1024U);
}

TEST(FrameList, BeginsWithWhatItIsGiven) {
    const std::vector<FunctionID> given(1024, 5);
    FrameList list(given);
    EXPECT_TRUE(list.append(6));
    EXPECT_EQ(list.frames().size(), 1025U);
    EXPECT_EQ(list.frames().front(), 5U);
    EXPECT_EQ(list.frames().back(), 6U);

    const testing::PatchedImport patch("VirtualAlloc", &no_pages);
    EXPECT_THROW(FrameList(std::vector<FunctionID>(1025)), std::bad_alloc);
}

} // namespace
} // namespace corvane
