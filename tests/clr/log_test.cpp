// The log as somebody reads it who has no debugger: in a file, or with a viewer of the whole
// system.
#include "base/debug_log.h"
#include "base/hresult_text.h"
#include "tests/support/debuggee.h"
#include "tests/support/output_viewer.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <thread>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr char kListed[] = "<configuration><instrumentation><applications>"
                           "<application name='program.exe' corvane='Enabled'/>"
                           "</applications></instrumentation></configuration>";

struct Record {
    std::string process;
    std::string text; // without the thread's id
};

// Every line of the file begins a record, or continues one behind blanks.
std::vector<Record> records(const fs::path& file) {
    static const std::regex start(
        R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z (\d+) (?:\d+ )?(.*)\r)");
    std::vector<Record> found;
    std::ifstream stream(file, std::ios::binary);
    for (std::string line; std::getline(stream, line);) {
        std::smatch match;
        if (std::regex_match(line, match, start)) {
            found.push_back({match[1], match[2]});
        } else if (!found.empty() && line.starts_with("    ") && line.ends_with('\r')) {
            found.back().text += '\n' + line.substr(4, line.size() - 5);
        } else {
            ADD_FAILURE() << line;
        }
    }
    return found;
}

std::vector<std::string> texts(const fs::path& file) {
    std::vector<std::string> found;
    for (Record& record : records(file)) {
        found.push_back(std::move(record.text));
    }
    return found;
}

std::vector<std::string> narrowed(const Lines& lines) {
    std::vector<std::string> narrow;
    for (const std::wstring& line : lines) {
        narrow.emplace_back(line.begin(), line.end()); // ASCII
    }
    return narrow;
}

class Log : public EachRuntimeTest {
protected:
    void SetUp() override {
        EachRuntimeTest::SetUp();
        configure(kListed);
    }

    fs::path file() const { return folder() / "corvane.log"; }

    // What stands in the file when nobody else reads.
    std::vector<std::string> log(Environment environment = {}) {
        environment[L"CORVANE_LOG_FILE"] = file().wstring();
        watch({.environment = std::move(environment), .with_debugger = false});
        return texts(file());
    }
};
INSTANTIATE_TEST_SUITE_P(Runtimes, Log, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(Log, StandsInAFile) {
    EXPECT_EQ(log(), narrowed(traced_log()));
}

TEST_P(Log, StandsInAFileOfEachProcess) {
    const fs::path pattern = folder() / "corvane {pid}.log";
    for (int i = 0; i < 2; ++i) {
        watch({.environment = {{L"CORVANE_LOG_FILE", pattern.wstring()}}, .with_debugger = false});
    }
    std::set<std::string> processes;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder())) {
        if (entry.path().extension() == L".log") {
            const auto all = records(entry.path());
            ASSERT_EQ(all.size(), traced_log().size());
            for (const Record& record : all) {
                EXPECT_EQ(entry.path().filename(), "corvane " + record.process + ".log");
            }
            processes.insert(all.front().process);
        }
    }
    EXPECT_EQ(processes.size(), 2U);
}

TEST_P(Log, IsSeenByAViewer) {
    std::vector<std::string> seen;
    {
        const OutputViewer viewer;
        watch({.with_debugger = false});
        seen = viewer.lines();
    }
    std::vector<std::string> own;
    for (const std::string& line : seen) {
        const std::size_t blank = line.find_first_not_of("0123456789");
        if (blank != 0 && blank != line.npos && line[blank] == ' ') { // behind the thread's id
            own.push_back(line.substr(blank + 1));
        }
    }
    EXPECT_EQ(own, narrowed(traced_log()));
}

TEST_P(Log, NamesWhatWasInstrumented) {
    const auto lines =
        log({{L"DOTNET_STARTUP_HOOKS", managed_library().wstring()}, {L"CORVANE_STRICT_IL", L"1"}});
    EXPECT_THAT(lines, Contains("[program]Program:Main() : Instrumented, number 0"));
    EXPECT_THAT(lines, Contains(AllOf(StartsWith("[program]Program:Main() : ("),
                                      HasSubstr(" bytes)\n    0x"), HasSubstr("CATCH:"))));
    EXPECT_THAT(lines, Contains("[program]Program:Main() : TRAVERSING TYPE System.Object "));
}

TEST_P(Log, HasTheLevelThatIsAskedFor) {
    EXPECT_THAT(log({{L"CORVANE_LOG_LEVEL", L"0"}}), IsEmpty());
    EXPECT_FALSE(fs::exists(file()));
    auto expected = narrowed(traced_log());
    std::erase_if(expected, [](const std::string& line) { // those of level 3
        return line.ends_with("called.") || line.ends_with("after should trace");
    });
    EXPECT_EQ(log({{L"CORVANE_LOG_LEVEL", L"1"}}), expected);
    fs::remove(file());
    const auto detailed = log({{L"CORVANE_LOG_LEVEL", L"4"},
                               {L"DOTNET_STARTUP_HOOKS", managed_library().wstring()},
                               {L"CORVANE_STRICT_IL", L"1"}});
    EXPECT_THAT(detailed, Contains("CClrProfiler::ModuleLoadFinished(): Invoked;"));
    EXPECT_THAT(detailed, Contains("[]il_disassembler:() : Code section:"));
}

// --- What cannot be used

struct BadVariable : NamedRow {
    const wchar_t* variable;
    const wchar_t* value;
    std::wstring line;
    bool is_first = false; // it comes with the first line already
};

std::wstring unwritable(const wchar_t* file, DWORD error) {
    return std::wstring(L"Failed to write the log file ") + file + L" (" +
           hresult_text(HRESULT_FROM_WIN32(error)).c_str() + L")";
}

constexpr const wchar_t* kFile = L"CORVANE_LOG_FILE";
const BadVariable kBadVariables[] = {
    {{"MissingFolder"},
     kFile,
     L"C:\\missing\\a.log",
     unwritable(L"C:\\missing\\a.log", ERROR_PATH_NOT_FOUND)},
    {{"ReadOnlyFolder"},
     kFile,
     L"Z:\\sys\\a.log",
     unwritable(L"Z:\\sys\\a.log", ERROR_ACCESS_DENIED)},
    {{"Folder"}, kFile, L"C:\\windows", unwritable(L"C:\\windows", ERROR_ACCESS_DENIED)},
    {{"FullDisk"}, kFile, L"Z:\\dev\\full", unwritable(L"Z:\\dev\\full", ERROR_DISK_FULL)},
    {{"Relative"},
     kFile,
     L"a.log",
     L"CORVANE_LOG_FILE is \"a.log\", which is no full path; no file is written"},
    {{"Level"},
     L"CORVANE_LOG_LEVEL",
     L"5",
     L"CORVANE_LOG_LEVEL is \"5\", which is no number from 0 to 4; 3 is used"},
    {{"Limit"},
     L"CORVANE_LOG_LIMIT_MB",
     L"0",
     L"CORVANE_LOG_LIMIT_MB is \"0\", which is no number from 1 to 1024; 10 is used"},
};

class BadLog : public EachRuntimeRowTest<BadVariable> {};
INSTANTIATE_TEST_SUITE_P(Variables, BadLog,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kBadVariables)),
                         row_name<BadVariable>);

TEST_P(BadLog, IsReportedAndLeavesTheProgram) {
    configure(kListed);
    Lines expected = traced_log();
    expected.insert(expected.begin() + 1, row().line);
    expect_traced(watch({.environment = {{row().variable, row().value}}}), expected);
}

// --- Many processes

DebuggeeResult append(const fs::path& file, const std::wstring& limit, const std::wstring& count) {
    DebuggeeOptions options;
    options.program = built_file(L"debuggee_child.exe").wstring();
    options.arguments = {L"append", file.wstring(), limit, count};
    return run_debuggee(options);
}

void append_at_once(int processes, const fs::path& file, const std::wstring& limit,
                    const std::wstring& count) {
    std::vector<std::thread> threads;
    for (int i = 0; i < processes; ++i) {
        threads.emplace_back([&] { EXPECT_EQ(append(file, limit, count).exit_code, 0U); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

using LinesOfProcess = std::map<std::string, std::vector<std::string>>;

LinesOfProcess by_process(const fs::path& older, const fs::path& newer) {
    LinesOfProcess lines;
    for (const fs::path& file : {older, newer}) {
        for (const Record& record : records(file)) {
            lines[record.process].push_back(record.text);
        }
    }
    return lines;
}

TEST(LogOfManyProcesses, HasEveryLineWhole) {
    const OwnFolder folder;
    const fs::path file = folder.path() / "a.log";
    append_at_once(8, file, L"100000000", L"1500");
    const LinesOfProcess lines = by_process(file, L"nothing");
    ASSERT_EQ(lines.size(), 8U);
    for (const auto& [process, own] : lines) {
        ASSERT_EQ(own.size(), 1500U);
        for (std::size_t i = 0; i < own.size(); ++i) {
            EXPECT_TRUE(own[i].starts_with("line " + std::to_string(i) + " xxx")) << own[i];
        }
    }
}

// There is room for all lines in the file and the one that was put away.
TEST(LogOfManyProcesses, LosesNoLineWhenItIsPutAway) {
    const OwnFolder folder;
    const fs::path file = folder.path() / "a.log";
    constexpr std::uintmax_t kLimit = 150'000;
    append_at_once(6, file, std::to_wstring(kLimit), L"500");
    const fs::path older = folder.path() / "a.log.old";
    ASSERT_TRUE(fs::exists(older));
    EXPECT_LE(fs::file_size(older), kLimit);
    EXPECT_LE(fs::file_size(file), kLimit);
    const LinesOfProcess lines = by_process(older, file);
    EXPECT_EQ(lines.size(), 6U);
    for (const auto& [process, own] : lines) {
        EXPECT_EQ(own.size(), 500U);
        EXPECT_EQ(std::set<std::string>(own.begin(), own.end()).size(), own.size());
    }
}

// --- A viewer

bool comes_within(const OutputViewer& viewer, const std::string& text, int milliseconds) {
    const ULONGLONG begin = GetTickCount64();
    do {
        default_log.log(1, L"now");
        const auto lines = viewer.lines();
        if (std::ranges::any_of(lines, [&](const auto& line) { return line.ends_with(text); })) {
            return true;
        }
    } while (GetTickCount64() - begin < static_cast<ULONGLONG>(milliseconds));
    return false;
}

TEST(LogViewer, MayComeAndGo) {
    { const StartUpLines start_up_is_over; }
    for (int i = 0; i < 3; ++i) {
        Sleep(150);
        EXPECT_FALSE(log_is_read());
        default_log.log(1, L"before");
        const OutputViewer viewer(GetCurrentProcessId());
        EXPECT_TRUE(comes_within(viewer, " now", 60'000));
        for (const std::string& line : viewer.lines()) {
            EXPECT_EQ(line, std::to_string(GetCurrentThreadId()) + " now");
        }
    }
}

} // namespace
} // namespace corvane::testing
