#include "base/log_file.h"

#include "base/hresult_text.h"
#include "tests/support/patched_import.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <thread>
#include <vector>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;

constexpr std::uint64_t kRoomy = 1U << 20;

std::string content(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// The texts of whole records, without time and process. A line that is none of a record is given as
// it stands.
std::vector<std::string> texts(const fs::path& file) {
    static const std::regex record(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z (\d+) (.*))");
    std::vector<std::string> found;
    const std::string bytes = content(file);
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t end = bytes.find("\r\n", at);
        const std::string line =
            bytes.substr(at, end == bytes.npos ? end : end - at) + (end == bytes.npos ? "<" : "");
        std::smatch match;
        const bool is_own = std::regex_match(line, match, record) &&
                            match[1] == std::to_string(GetCurrentProcessId());
        found.push_back(is_own ? match[2].str() : "? " + line);
        at = end == bytes.npos ? end : end + 2;
    }
    return found;
}

// The clock that the file goes by. It stands, and is moved by a test, or by who waits in one.
constexpr ULONGLONG kBegan = 100'000;
ULONGLONG moved = 0;
ULONGLONG WINAPI moved_clock() {
    return kBegan + moved;
}
void WINAPI move_clock(DWORD milliseconds) {
    moved += milliseconds;
}

int opened = 0;
decltype(&CreateFileW) real_open = nullptr;
HANDLE WINAPI counted_open(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                           DWORD disposition, DWORD flags, HANDLE like) {
    ++opened;
    return real_open(name, access, share, security, disposition, flags, like);
}

// How many bytes a disk takes before it is full.
std::size_t free_bytes = 0;
decltype(&WriteFile) real_write = nullptr;
BOOL WINAPI write_to_a_small_disk(HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written,
                                  LPOVERLAPPED overlapped) {
    if (free_bytes == 0) {
        *written = 0;
        SetLastError(ERROR_DISK_FULL);
        return FALSE;
    }
    const auto taken = static_cast<DWORD>(std::min<std::size_t>(size, free_bytes));
    free_bytes -= taken;
    return real_write(file, bytes, taken, written, overlapped);
}

class LogFileTest : public ::testing::Test {
protected:
    LogFileTest() {
        fs::create_directory(folder_);
        moved = 0;
        opened = 0;
        real_open = opening_.original();
    }
    ~LogFileTest() override {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }

    std::wstring failure(const fs::path& file, DWORD error) const {
        return L"Failed to write the log file " + file.wstring() + L" (" +
               hresult_text(HRESULT_FROM_WIN32(error)).c_str() + L")";
    }

    const fs::path folder_ =
        fs::temp_directory_path() / (L"corvane log " + std::to_wstring(GetCurrentProcessId()));
    const fs::path path_ = folder_ / "a.log";
    const fs::path older_ = folder_ / "a.log.old";
    PatchedImport<ULONGLONG WINAPI()> clock_{"GetTickCount64", moved_clock};
    PatchedImport<std::remove_pointer_t<decltype(&CreateFileW)>> opening_{"CreateFileW",
                                                                          counted_open};
};

TEST_F(LogFileTest, IsMadeWithTheFirstLine) {
    LogFile file(path_.wstring(), kRoomy);
    EXPECT_FALSE(fs::exists(path_));
    EXPECT_EQ(file.append(L"12 first"), L"");
    EXPECT_EQ(file.append(L"12 second \u0416\nand more"), L"");
    EXPECT_THAT(texts(path_), ElementsAre("12 first", "12 second \xD0\x96", "?     and more"));
    EXPECT_FALSE(fs::exists(older_));
    EXPECT_EQ(opened, 1);
}

TEST_F(LogFileTest, IsContinued) {
    LogFile(path_.wstring(), kRoomy).append(L"1 before");
    LogFile(path_.wstring(), kRoomy).append(L"2 behind");
    EXPECT_THAT(texts(path_), ElementsAre("1 before", "2 behind"));
}

TEST_F(LogFileTest, MayBeReadRenamedAndDeletedByOthers) {
    LogFile file(path_.wstring(), kRoomy);
    file.append(L"1 first");
    fs::rename(path_, folder_ / "mine.log");
    file.append(L"1 second");
    EXPECT_THAT(texts(folder_ / "mine.log"), ElementsAre("1 first", "1 second"));
    moved = 1000; // by then it is looked for
    file.append(L"1 third");
    EXPECT_THAT(texts(path_), ElementsAre("1 third"));
    fs::remove(path_);
    moved = 2000;
    file.append(L"1 fourth");
    EXPECT_THAT(texts(path_), ElementsAre("1 fourth"));
}

// A record takes 31 bytes, the process and its text.
std::uint64_t room_for(std::size_t records, std::size_t text) {
    const std::size_t process = std::to_string(GetCurrentProcessId()).size();
    return records * (std::string("2026-01-01T00:00:00.000Z  \r\n").size() + process + text);
}

TEST_F(LogFileTest, IsPutAwayWhenTheNextLineWouldNotFit) {
    LogFile file(path_.wstring(), room_for(3, 1));
    for (const wchar_t* const line : {L"1", L"2", L"3"}) {
        EXPECT_EQ(file.append(line), L"");
    }
    EXPECT_FALSE(fs::exists(older_));
    EXPECT_EQ(fs::file_size(path_), room_for(3, 1));
    file.append(L"4");
    EXPECT_THAT(texts(older_), ElementsAre("1", "2", "3"));
    EXPECT_THAT(texts(path_), ElementsAre("4"));
    for (const wchar_t* const line : {L"5", L"6", L"7"}) {
        EXPECT_EQ(file.append(line), L"");
    }
    EXPECT_THAT(texts(older_), ElementsAre("4", "5", "6"));
    EXPECT_THAT(texts(path_), ElementsAre("7"));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), {}), 2);
}

TEST_F(LogFileTest, TakesALineThatIsLongerThanItMayBe) {
    LogFile file(path_.wstring(), 100);
    const std::wstring line(500, L'x');
    EXPECT_EQ(file.append(line), L"");
    EXPECT_EQ(file.append(L"1"), L"");
    EXPECT_THAT(texts(older_), ElementsAre(std::string(500, 'x')));
    EXPECT_THAT(texts(path_), ElementsAre("1"));
}

// As several processes do, each with a handle of its own.
TEST_F(LogFileTest, IsPutAwayOnceByAllThatWriteIt) {
    LogFile first(path_.wstring(), room_for(4, 1));
    LogFile second(path_.wstring(), room_for(4, 1));
    first.append(L"1");
    second.append(L"2");
    first.append(L"3");
    second.append(L"4");
    first.append(L"5");  // puts it away
    second.append(L"6"); // finds that out
    first.append(L"7");
    EXPECT_THAT(texts(older_), ElementsAre("1", "2", "3", "4"));
    EXPECT_THAT(texts(path_), ElementsAre("5", "6", "7"));
}

// A process that has nothing to say keeps the file of its last line open.
TEST_F(LogFileTest, TakesThePlaceOfAnOlderFileThatIsOpen) {
    LogFile idle(path_.wstring(), room_for(1, 1));
    LogFile file(path_.wstring(), room_for(1, 1));
    for (LogFile* const writer : {&idle, &file, &file, &file}) {
        EXPECT_EQ(writer->append(L"1"), L"");
    }
    file.append(L"2");
    EXPECT_THAT(texts(older_), ElementsAre("1"));
    EXPECT_THAT(texts(path_), ElementsAre("2"));
}

TEST_F(LogFileTest, HasTheLinesOfAllThreadsWhole) {
    LogFile first(path_.wstring(), kRoomy);
    LogFile second(path_.wstring(), kRoomy);
    std::set<std::string> expected;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 6; ++thread) {
        for (int i = 0; i < 100; ++i) {
            expected.insert(std::to_string(thread) + " line " + std::to_string(i));
        }
        threads.emplace_back([&file = thread % 2 == 0 ? first : second, thread] {
            for (int i = 0; i < 100; ++i) {
                file.append(std::to_wstring(thread) + L" line " + std::to_wstring(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(texts(path_), UnorderedElementsAreArray(expected));
}

TEST_F(LogFileTest, LosesNoLineOfManyWhenItIsPutAway) {
    const std::uint64_t limit = room_for(250, 10);
    LogFile first(path_.wstring(), limit);
    LogFile second(path_.wstring(), limit);
    std::vector<std::thread> threads;
    for (LogFile* const file : {&first, &second}) {
        threads.emplace_back([file, name = file == &first ? L"a" : L"b"] {
            for (int i = 0; i < 200; ++i) {
                file->append(std::wstring(name) + L" 00000 " + std::to_wstring(100 + i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_LE(fs::file_size(older_), limit);
    std::vector<std::string> all = texts(older_);
    const std::vector<std::string> newer = texts(path_);
    all.insert(all.end(), newer.begin(), newer.end());
    EXPECT_EQ(all.size(), 400U);
    EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), 400U);
    EXPECT_EQ(std::ranges::count_if(all, [](const auto& line) { return line[0] == '?'; }), 0);
}

// --- What cannot be written

struct BadPlace {
    const wchar_t* file;
    DWORD error;
};

TEST_F(LogFileTest, ReportsOnceWhatKeepsItFromItsPlace) {
    fs::create_directory(folder_ / "folder");
    for (const auto& [name, error] : {BadPlace{L"missing\\a.log", ERROR_PATH_NOT_FOUND},
                                      BadPlace{L"folder", ERROR_ACCESS_DENIED},
                                      BadPlace{L"Z:\\sys\\a.log", ERROR_ACCESS_DENIED},
                                      BadPlace{L"a|b.log", ERROR_INVALID_NAME}}) {
        const fs::path place = folder_ / name;
        LogFile file(place.wstring(), kRoomy);
        opened = 0;
        EXPECT_TRUE(file.takes_lines());
        EXPECT_EQ(file.append(L"1"), failure(place, error));
        EXPECT_FALSE(file.takes_lines());
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(file.append(L"2"), L"");
        }
        EXPECT_EQ(opened, 1);
        moved += 5000;
        EXPECT_TRUE(file.takes_lines());
        EXPECT_EQ(file.append(L"3"), L""); // known
        EXPECT_EQ(opened, 2);
        EXPECT_FALSE(file.takes_lines());
    }
}

TEST_F(LogFileTest, BeginsWhenItsFolderIsThere) {
    const fs::path place = folder_ / "later" / "a.log";
    LogFile file(place.wstring(), kRoomy);
    EXPECT_EQ(file.append(L"1"), failure(place, ERROR_PATH_NOT_FOUND));
    fs::create_directory(folder_ / "later");
    EXPECT_EQ(file.append(L"2"), L"");
    EXPECT_FALSE(fs::exists(place));
    moved = 5000;
    EXPECT_EQ(file.append(L"3"), L"");
    EXPECT_THAT(texts(place), ElementsAre("3"));
}

TEST_F(LogFileTest, WaitsForSomebodyWhoSharesItWithNobody) {
    OwnedHandle alone(real_open(path_.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_NE(alone.get(), INVALID_HANDLE_VALUE);
    LogFile file(path_.wstring(), kRoomy);
    EXPECT_EQ(file.append(L"1"), failure(path_, ERROR_SHARING_VIOLATION));
    alone.reset();
    moved = 5000;
    EXPECT_EQ(file.append(L"2"), L"");
    EXPECT_THAT(texts(path_), ElementsAre("2"));
}

TEST_F(LogFileTest, GoesOnWhereADiskWasFull) {
    const PatchedImport small("WriteFile", &write_to_a_small_disk);
    real_write = small.original();
    LogFile file(path_.wstring(), kRoomy);
    free_bytes = room_for(1, 1) + 10;
    EXPECT_EQ(file.append(L"1"), L"");
    EXPECT_EQ(file.append(L"2"), failure(path_, ERROR_DISK_FULL));
    moved = 5000;
    EXPECT_EQ(file.append(L"3"), L"");
    free_bytes = 1000;
    moved = 10'000;
    EXPECT_EQ(file.append(L"4"), L"");
    EXPECT_EQ(file.append(L"5"), L"");
    const auto lines = texts(path_);
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0], "1");
    EXPECT_EQ(lines[1].size(), 12U); // what the disk took of the second one
    EXPECT_EQ(lines[2], "4");
    EXPECT_EQ(lines[3], "5");
    // What fails again is news again.
    free_bytes = 0;
    EXPECT_EQ(file.append(L"6"), failure(path_, ERROR_DISK_FULL));
}

// What has the device's name takes nothing.
TEST_F(LogFileTest, ReportsADeviceThatIsFull) {
    const fs::path device = L"Z:\\dev\\full";
    LogFile file(device.wstring(), kRoomy);
    EXPECT_EQ(file.append(L"1"), failure(device, ERROR_DISK_FULL));
    EXPECT_FALSE(file.takes_lines());
}

TEST_F(LogFileTest, StaysBoundedWhenItCannotBePutAway) {
    LogFile file(path_.wstring(), room_for(2, 1));
    file.append(L"1");
    file.append(L"2");
    OwnedHandle reader(real_open(path_.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                 nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_NE(reader.get(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(file.append(L"3"), failure(path_, ERROR_SHARING_VIOLATION));
    EXPECT_EQ(fs::file_size(path_), room_for(2, 1));
    reader.reset();
    moved = 5000;
    EXPECT_EQ(file.append(L"4"), L"");
    EXPECT_THAT(texts(older_), ElementsAre("1", "2"));
    EXPECT_THAT(texts(path_), ElementsAre("4"));
}

// Of a process that a debugger holds.
TEST_F(LogFileTest, WaitsForAnotherProcessAMomentOnly) {
    const PatchedImport<void WINAPI(DWORD)> sleep("Sleep", move_clock);
    LogFile file(path_.wstring(), kRoomy);
    file.append(L"1");
    const OwnedHandle other(real_open(path_.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    OVERLAPPED place = {};
    place.OffsetHigh = 0x40000000;
    ASSERT_NE(LockFileEx(other.get(), LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0,
                         &place),
              FALSE);
    EXPECT_EQ(file.append(L"2"), L"");
    EXPECT_EQ(moved, 500U);
    EXPECT_THAT(texts(path_), ElementsAre("1", "2"));

    // It is waited for once, not for each line, until it was free again.
    for (int line = 0; line < 100; ++line) {
        EXPECT_EQ(file.append(L"3"), L"");
    }
    EXPECT_EQ(moved, 500U);
    UnlockFileEx(other.get(), 0, 1, 0, &place);
    EXPECT_EQ(file.append(L"4"), L"");
    ASSERT_NE(LockFileEx(other.get(), LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0,
                         &place),
              FALSE);
    EXPECT_EQ(file.append(L"5"), L"");
    EXPECT_EQ(moved, 1000U);
}

} // namespace
} // namespace corvane::testing
