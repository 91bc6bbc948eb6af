#include "base/log_output.h"

#include "base/debug_log.h"
#include "tests/support/allocations.h"
#include "tests/support/debug_output.h"
#include "tests/support/patched_import.h"

#include <gtest/gtest.h>

#include <windows.h>

namespace corvane::testing {
namespace {

// How the profiler looks for a viewer, and what it finds.
struct {
    bool listens = false;
    int looks = 0;
    std::wstring name;
    DWORD access = 0;
} viewer;

HANDLE WINAPI look_for_viewer(DWORD access, BOOL, LPCWSTR name) {
    ++viewer.looks;
    viewer.access = access;
    viewer.name = name;
    return viewer.listens ? CreateEventW(nullptr, FALSE, FALSE, nullptr) : nullptr;
}

void wait(ULONGLONG milliseconds) {
    const ULONGLONG begin = GetTickCount64();
    while (GetTickCount64() - begin < milliseconds) {
        Sleep(1);
    }
}

// Start-up is over, there is no debugger, and whether a viewer listens is the test's to say.
class LogOutputTest : public ::testing::Test {
protected:
    LogOutputTest() {
        { const StartUpLines is_over; }
        viewer = {};
        wait(100); // what was found before is out of date
    }

    DebugOutput output;
    DebuggerPresence debugger{false};
    PatchedImport<HANDLE WINAPI(DWORD, BOOL, LPCWSTR)> look{"OpenEventW", look_for_viewer};
};

TEST_F(LogOutputTest, SendsNothingWhereNobodyReads) {
    EXPECT_FALSE(log_is_read());
    const std::size_t before = allocations();
    default_log.log(1, L"%s", L"one");
    NarrowDebugLog("", 4).log_narrow(1, "%s", "two");
    NarrowDebugLog("", 4).log_line_narrow("three");
    EXPECT_FALSE(default_log.writes(1));
    EXPECT_FALSE(NarrowDebugLog("").writes(1));
    EXPECT_EQ(allocations(), before);
    EXPECT_EQ(output.raw(), L"");
}

TEST_F(LogOutputTest, SendsToADebuggerFromTheNextLineOn) {
    default_log.log(1, L"before");
    {
        const DebuggerPresence attached(true);
        EXPECT_TRUE(default_log.writes(3));
        EXPECT_FALSE(default_log.writes(4));
        default_log.log(1, L"while");
        NarrowDebugLog("").log_narrow(1, "narrow");
    }
    default_log.log(1, L"behind");
    EXPECT_EQ(output.text(), L"while\nnarrow\n");
}

TEST_F(LogOutputTest, SendsWhatStartUpWrites) {
    default_log.log(1, L"before");
    {
        const StartUpLines all_are_sent;
        default_log.log(1, L"while");
        EXPECT_TRUE(default_log.writes(1));
    }
    default_log.log(1, L"behind");
    EXPECT_EQ(output.text(), L"while\n");
}

TEST_F(LogOutputTest, NoticesAViewerThatComesAndGoes) {
    EXPECT_FALSE(log_is_read());
    viewer.listens = true;
    wait(100);
    default_log.log(1, L"while");
    viewer.listens = false;
    wait(100);
    default_log.log(1, L"behind");
    EXPECT_EQ(output.text(), L"while\n");
}

TEST_F(LogOutputTest, LooksAsTheSystemDoes) {
    EXPECT_FALSE(log_is_read());
    EXPECT_EQ(viewer.name, L"DBWIN_BUFFER_READY");
    EXPECT_EQ(viewer.access, static_cast<DWORD>(SYNCHRONIZE));
}

TEST_F(LogOutputTest, LooksForAViewerAtMostEveryHundredMilliseconds) {
    const ULONGLONG begin = GetTickCount64();
    while (GetTickCount64() - begin < 350) {
        default_log.log(1, L"nobody reads this");
    }
    const ULONGLONG took = GetTickCount64() - begin;
    EXPECT_GE(viewer.looks, 2);
    EXPECT_LE(viewer.looks, static_cast<int>(took / 100) + 1);
}

TEST_F(LogOutputTest, LooksForNobodyWhereALevelIsSuppressed) {
    default_log.log(4, L"detail");
    EXPECT_FALSE(default_log.writes(4));
    EXPECT_EQ(viewer.looks, 0);
}

TEST_F(LogOutputTest, KeepsNoHandleOfAViewer) {
    viewer.listens = true;
    DWORD before = 0;
    DWORD behind = 0;
    GetProcessHandleCount(GetCurrentProcess(), &before);
    for (int i = 0; i < 3; ++i) {
        wait(100);
        EXPECT_TRUE(log_is_read());
    }
    GetProcessHandleCount(GetCurrentProcess(), &behind);
    EXPECT_EQ(viewer.looks, 3);
    EXPECT_EQ(behind, before);
}

} // namespace
} // namespace corvane::testing
