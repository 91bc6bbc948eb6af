#include "base/log_output.h"

#include "base/debug_log.h"
#include "base/hresult_text.h"
#include "tests/support/allocations.h"
#include "tests/support/debug_output.h"
#include "tests/support/patched_import.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace corvane::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;

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

// The clock of these tests: it stands still unless they wait.
ULONGLONG now = 0;
ULONGLONG WINAPI standing_clock() {
    return now;
}

void wait(ULONGLONG milliseconds) {
    now += milliseconds;
}

// A path in a folder of its own, and what the file there holds.
struct LogFileOf {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() /
        (L"corvane log output " + std::to_wstring(GetCurrentProcessId()));
    const std::filesystem::path path;

    explicit LogFileOf(const wchar_t* name) : path(folder / name) {
        std::filesystem::create_directory(folder);
    }
    LogFileOf(const LogFileOf&) = delete;
    LogFileOf& operator=(const LogFileOf&) = delete;
    ~LogFileOf() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    std::vector<std::string> lines() const {
        std::vector<std::string> found;
        std::ifstream stream(path);
        for (std::string line; std::getline(stream, line);) {
            found.push_back(line);
        }
        return found;
    }
};

// Start-up is over, there is no debugger, and whether a viewer listens is the test's to say.
class LogOutputTest : public ::testing::Test {
protected:
    LogOutputTest() {
        { const StartUpLines is_over; }
        viewer = {};
        now = std::max(now, clock.original()()) + 100; // what was found before is out of date
    }
    ~LogOutputTest() override {
        end_log_file(false);
        begin_log({.file = {}, .limit = 0, .level = 3, .complaints = {}});
    }

    DebugOutput output;
    DebuggerPresence debugger{false};
    PatchedImport<HANDLE WINAPI(DWORD, BOOL, LPCWSTR)> look{"OpenEventW", look_for_viewer};
    PatchedImport<ULONGLONG WINAPI()> clock{"GetTickCount64", standing_clock};
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
    for (int looks = 1; looks <= 3; ++looks) {
        for (int ms = 0; ms < 100; ++ms) {
            default_log.log(1, L"nobody reads this");
            EXPECT_EQ(viewer.looks, looks);
            wait(1);
        }
    }
}

TEST_F(LogOutputTest, LooksForNobodyWhereALevelIsSuppressed) {
    default_log.log(4, L"detail");
    EXPECT_FALSE(default_log.writes(4));
    EXPECT_EQ(viewer.looks, 0);
}

// The file is the first sign of life that somebody without a viewer has.
TEST_F(LogOutputTest, SendsToAFileWhateverElseReads) {
    const LogFileOf file(L"a.log");
    begin_log({.file = file.path.wstring(), .limit = 1 << 20, .level = 3, .complaints = {}});
    EXPECT_TRUE(log_is_read());
    default_log.log(1, L"%s \u0416", L"wide");
    default_log.log(4, L"detail");
    NarrowDebugLog("").log_narrow(3, "narrow \xFC");
    NarrowDebugLog("", 4).log_line_narrow("listing");
    const DebuggerPresence attached(true);
    default_log.log(1, L"both");
    end_log_file(false);
    default_log.log(1, L"debugger alone");
    const std::string id = std::to_string(GetCurrentThreadId()) + ' ';
    EXPECT_THAT(file.lines(),
                ElementsAre(EndsWith(id + "wide \xD0\x96"), EndsWith(id + "narrow \xC3\xBC"),
                            EndsWith(id + "listing"), EndsWith(id + "both")));
    EXPECT_EQ(output.text(), L"both\ndebugger alone\n");
}

TEST_F(LogOutputTest, ReportsAFileThatCannotBeWrittenToWhoReads) {
    const LogFileOf file(L"missing\\a.log");
    const std::wstring failure = L"Failed to write the log file " + file.path.wstring() + L" (" +
                                 hresult_text(HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND)).c_str() +
                                 L")\n";
    const LogSettings settings = {
        .file = file.path.wstring(), .limit = 1 << 20, .level = 3, .complaints = {}};
    {
        const DebuggerPresence attached(true);
        begin_log(settings);
        default_log.log(1, L"one");
        default_log.log(1, L"two");
        EXPECT_EQ(output.text(), L"one\n" + failure + L"two\n");
        end_log_file(false);
    }
    begin_log(settings);
    EXPECT_TRUE(log_is_read());
    default_log.log(1, L"nobody sees this");
    EXPECT_FALSE(log_is_read()); // until the next attempt
    EXPECT_EQ(output.text(), L"one\n" + failure + L"two\n");
}

TEST_F(LogOutputTest, HasALevelForTheChannelsWithoutOneOfTheirOwn) {
    const DebuggerPresence attached(true);
    for (std::int32_t level = 0; level <= 4; ++level) {
        begin_log({.file = {}, .limit = 0, .level = level, .complaints = {}});
        EXPECT_EQ(log_level(), level);
        for (std::int32_t of_line = 1; of_line <= 4; ++of_line) {
            EXPECT_EQ(default_log.writes(of_line), of_line <= level);
            EXPECT_EQ(NarrowDebugLog("").writes(of_line), of_line <= level);
            EXPECT_EQ(DebugLog(L"", 2).writes(of_line), of_line <= 2);
        }
    }
}

// Other threads may have been ended with the lock.
TEST_F(LogOutputTest, LeavesTheFileAloneWhenTheProcessEnds) {
    const LogFileOf file(L"a.log");
    begin_log({.file = file.path.wstring(), .limit = 1 << 20, .level = 3, .complaints = {}});
    default_log.log(1, L"before");
    end_log_file(true);
    default_log.log(1, L"behind");
    EXPECT_FALSE(log_is_read());
    EXPECT_THAT(file.lines(), ElementsAre(EndsWith(" before")));
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
