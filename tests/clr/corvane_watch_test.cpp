// corvane watch, beside real programs that write.
#include "base/owned_handle.h"
#include "tests/support/debuggee.h"
#include "tests/support/output_viewer.h"
#include "tests/support/runtime_test.h"
#include "tools/corvane/watched_line.h"

#include <gmock/gmock.h>

#include <cstring>
#include <fstream>
#include <regex>
#include <set>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSubsetOf;
using ::testing::Not;

constexpr DWORD kOtherViewer = 3;
constexpr DWORD kTimeout = 300'000;

using TextLines = std::vector<std::string>;

TextLines read_lines(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    TextLines lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line.substr(0, line.find_last_not_of('\r') + 1));
    }
    return lines;
}

// "corvane watch" as long as it lives.
class Watcher {
public:
    // Until it has written this.
    Watcher(const fs::path& folder, const std::wstring& options,
            const std::string& begun = "1 failures")
        : file_(folder / "watch.txt") {
        SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
        const OwnedHandle output(CreateFileW(file_.c_str(), GENERIC_WRITE,
                                             FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                                             CREATE_ALWAYS, 0, nullptr));
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdOutput = output.get();
        startup.hStdError = output.get();
        PROCESS_INFORMATION process{};
        std::wstring command = L'"' + built_file(L"corvane.exe").wstring() + L"\" watch " + options;
        if (CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                           &startup, &process) == FALSE) {
            throw std::runtime_error("corvane.exe cannot be started");
        }
        CloseHandle(process.hThread);
        process_.reset(process.hProcess);
        wait_for(begun);
    }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;
    ~Watcher() {
        TerminateProcess(process_.get(), 99);
        WaitForSingleObject(process_.get(), kTimeout);
    }

    void wait_for(const std::string& text) const {
        for (DWORD waited = 0; waited < kTimeout; waited += 20) {
            for (const std::string& line : lines()) {
                if (line.find(text) != line.npos) {
                    return;
                }
            }
            Sleep(20);
        }
        ADD_FAILURE() << "no line with " << text;
    }

    TextLines lines() const { return read_lines(file_); }

    // Those of programs.
    TextLines shown() const {
        TextLines all = lines();
        std::erase_if(all, [](const std::string& line) {
            return line.starts_with("corvane: ") || line.starts_with("    ");
        });
        return all;
    }

    // Ends it as a console does at Ctrl+C, for a machine that has none: by a thread in the process.
    // Gives the exit code.
    [[nodiscard]] std::optional<DWORD> interrupt() const {
        const auto routine = reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(
            GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine")));
        const OwnedHandle thread(CreateRemoteThread(process_.get(), nullptr, 0, routine,
                                                    reinterpret_cast<void*>(CTRL_C_EVENT), 0,
                                                    nullptr));
        DWORD exit_code = 0;
        if (!thread || WaitForSingleObject(process_.get(), kTimeout) != WAIT_OBJECT_0 ||
            GetExitCodeProcess(process_.get(), &exit_code) == FALSE) {
            return std::nullopt;
        }
        return exit_code;
    }

private:
    const fs::path file_;
    OwnedHandle process_;
};

class CorvaneWatch : public RuntimeTest {
protected:
    void SetUp() override {
        use_runtime(10);
        configure("<configuration><instrumentation><applications>"
                  "<application name='program.exe' corvane='Enabled'/>"
                  "</applications></instrumentation></configuration>");
    }

    void run_program(const std::wstring& level, const Environment& others = {}) {
        Launch launch = {.environment = others, .with_witness = false, .with_debugger = false};
        launch.environment[L"CORVANE_LOG_LEVEL"] = level;
        launch.environment[L"DOTNET_STARTUP_HOOKS"] = managed_library().wstring();
        watch(launch);
    }
};

TEST_F(CorvaneWatch, ShowsLinesWithTheirProcess) {
    const Watcher watcher(folder(), L"");
    run_program(L"3");
    watcher.wait_for("Instrumented, number 0");
    EXPECT_THAT(watcher.shown(), Each(HasSubstr(" program.exe(")));
    EXPECT_THAT(watcher.shown(), Contains(HasSubstr("CClrProfiler::Initialize(): Invoked")));
    // The dump of a body continues behind blanks.
    EXPECT_THAT(watcher.lines(), Contains(HasSubstr("    Header type: FAT")));
}

TEST_F(CorvaneWatch, ShowsOneExecutableOnly) {
    const Watcher others(folder(), L"--name other");
    run_program(L"1");
    EXPECT_THAT(others.shown(), IsEmpty());
}

TEST_F(CorvaneWatch, TakesTheNameWithItsEndingAndWithout) {
    for (const wchar_t* const name : {L"--name PROGRAM", L"--name program.exe"}) {
        const Watcher watcher(folder(), name);
        run_program(L"1");
        watcher.wait_for("Inserting prologue for: Program.Main");
    }
}

TEST_F(CorvaneWatch, ShowsOneProcessOnly) {
    const std::wstring own = std::to_wstring(GetCurrentProcessId());
    const Watcher watcher(folder(), L"--pid " + own);
    run_program(L"1");
    OutputDebugStringA("12 of ourselves");
    watcher.wait_for("12 of ourselves");
    EXPECT_EQ(watcher.shown().size(), 1U);
}

TEST_F(CorvaneWatch, ShowsLevelsUpToOne) {
    const Watcher watcher(folder(), L"--level 1");
    run_program(L"4");
    watcher.wait_for("Inserting prologue for: Program.Main");
    OutputDebugStringA("12 the end");
    watcher.wait_for("12 the end");
    EXPECT_THAT(watcher.lines(), Each(Not(HasSubstr("ModuleLoadFinished"))));
    EXPECT_THAT(watcher.lines(), Each(Not(HasSubstr("Header type"))));
    EXPECT_THAT(watcher.lines(), Each(Not(HasSubstr("after should trace"))));
}

TEST_F(CorvaneWatch, ShowsLinesOfOtherSoftwareWhenAskedTo) {
    for (const bool all : {false, true}) {
        const Watcher watcher(folder(), all ? L"--all" : L"");
        OutputDebugStringA("hello");
        OutputDebugStringA("12 the end");
        watcher.wait_for("12 the end");
        EXPECT_EQ(watcher.shown().size(), all ? 2U : 1U);
    }
}

// As Windows sends a text that is longer than the page.
TEST_F(CorvaneWatch, ShowsALongTextWhole) {
    const Watcher watcher(folder(), L"");
    constexpr std::size_t kRoom = 4096 - sizeof(DWORD);
    const OwnedHandle ready(OpenEventW(SYNCHRONIZE, FALSE, L"DBWIN_BUFFER_READY"));
    const OwnedHandle data(OpenEventW(EVENT_MODIFY_STATE, FALSE, L"DBWIN_DATA_READY"));
    const OwnedHandle memory(OpenFileMappingW(FILE_MAP_WRITE, FALSE, L"DBWIN_BUFFER"));
    auto* const page = static_cast<char*>(MapViewOfFile(memory.get(), FILE_MAP_WRITE, 0, 0, 0));
    ASSERT_NE(page, nullptr);
    const DWORD process = GetCurrentProcessId();
    const std::string text = "12 begin" + std::string(2 * kRoom, 'z') + "end";
    for (std::size_t at = 0; at < text.size(); at += kRoom - 1) {
        ASSERT_EQ(WaitForSingleObject(ready.get(), kTimeout), WAIT_OBJECT_0);
        const std::string piece = text.substr(at, kRoom - 1);
        std::memcpy(page, &process, sizeof process);
        std::memcpy(page + sizeof process, piece.c_str(), piece.size() + 1);
        SetEvent(data.get());
    }
    UnmapViewOfFile(page);
    watcher.wait_for("zend");
    std::size_t letters = 0;
    for (const std::string& line : watcher.lines()) {
        letters += static_cast<std::size_t>(std::ranges::count(line, 'z'));
    }
    EXPECT_EQ(letters, 2 * kRoom);
    EXPECT_EQ(watcher.shown().size(), 1U);
}

TEST_F(CorvaneWatch, GivesWayToAnotherViewer) {
    DebuggeeOptions options;
    options.program = built_file(L"corvane.exe").wstring();
    options.arguments = {L"watch", L"--seconds", L"1"};
    options.output_file = (folder() / "refused.txt").wstring();
    {
        const OutputViewer other;
        EXPECT_EQ(run_debuggee(options).exit_code, kOtherViewer);
        EXPECT_THAT(read_lines(folder() / "refused.txt"),
                    Contains(HasSubstr("another viewer reads the debugger output")));
    }
    EXPECT_EQ(run_debuggee(options).exit_code, 0U);
}

// As it is when a program was writing while a viewer ended.
TEST_F(CorvaneWatch, WaitsForAProgramThatStillWritesToTheViewerBefore) {
    std::optional<OutputViewer> other(std::in_place); // opens what the program keeps open
    OwnedHandle kept(OpenFileMappingW(FILE_MAP_WRITE, FALSE, L"DBWIN_BUFFER"));
    ASSERT_TRUE(kept);
    other.reset();
    const Watcher watcher(folder(), L"", "; waiting");
    kept.reset();
    watcher.wait_for("1 failures");
    OutputDebugStringA("12 the end");
    watcher.wait_for("12 the end");
}

TEST_F(CorvaneWatch, EndsByCtrlC) {
    const Watcher watcher(folder(), L"");
    EXPECT_EQ(watcher.interrupt(), 0U);
}

// The texts that a run writes at a level, without threads and records' times.
std::set<std::string> texts_of(const fs::path& log) {
    std::set<std::string> texts;
    std::string record;
    TextLines lines = read_lines(log);
    lines.emplace_back("0");
    for (const std::string& line : lines) {
        if (line.starts_with("    ")) {
            record += '\n' + line.substr(4);
            continue;
        }
        if (!record.empty()) {
            texts.insert(record);
        }
        static const std::regex form(R"(\S+ \d+ (\d+ )?(.*))"); // time, process, thread
        std::smatch match;
        const bool is_record = std::regex_match(line, match, form);
        record = !is_record ? "" : (match[1].matched ? "1 " : "") + match[2].str();
    }
    return texts;
}

TEST_F(CorvaneWatch, KnowsTheLevelsOfARun) {
    std::map<int, std::set<std::string>> texts;
    for (const int level : {1, 3, 4}) {
        const fs::path log = folder() / ("log" + std::to_string(level) + ".txt");
        run_program(std::to_wstring(level), {{L"CORVANE_LOG_FILE", log.wstring()}});
        texts[level] = texts_of(log);
        ASSERT_THAT(texts[level], Not(IsEmpty()));
    }
    for (const int level : {1, 3}) {
        std::set<std::string> known;
        for (const std::string& text : texts[4]) {
            if (tool::level_of(text) <= level) {
                known.insert(text);
            }
        }
        EXPECT_EQ(known, texts[level]);
    }
    EXPECT_GT(texts[3].size(), texts[1].size());
    EXPECT_GT(texts[4].size(), texts[3].size());
}

} // namespace
} // namespace corvane::testing
