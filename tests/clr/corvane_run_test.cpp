// corvane run: the program is what it is without, and what was asked for is there afterwards.
#include "base/local_memory.h"
#include "tests/support/tool_test.h"

#include <gmock/gmock.h>

#include <aclapi.h>
#include <sddl.h>

#include <algorithm>
#include <thread>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr char kNoVariables[] = "variables: \r\n";

class CorvaneRun : public ToolTest {
protected:
    CorvaneRun() { program = L"launched"; }

    void TearDown() override {
        if (!IsSkipped()) {
            EXPECT_TRUE(fs::is_empty(temporary()));
        }
    }

    std::wstring launched() const { return program_as(L"launched.exe").wstring(); }

    std::vector<std::wstring> command(std::vector<std::wstring> options,
                                      const std::vector<std::wstring>& words) const {
        options.insert(options.begin(), L"run");
        options.emplace_back(L"--");
        options.push_back(launched());
        options.insert(options.end(), words.begin(), words.end());
        return options;
    }

    ToolRun run(const std::vector<std::wstring>& options, const std::vector<std::wstring>& words,
                const Environment& environment = {}) const {
        return run_tool(command(options, words), environment);
    }

    // Files of a folder whose names are so, sorted.
    static std::vector<fs::path> files(const fs::path& folder, const std::wstring& beginning,
                                       const std::wstring& end) {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(folder)) {
            const std::wstring name = entry.path().filename().wstring();
            if (name.starts_with(beginning) && name.ends_with(end)) {
                found.push_back(entry.path());
            }
        }
        std::ranges::sort(found);
        return found;
    }
};
INSTANTIATE_TEST_SUITE_P(Runtimes, CorvaneRun, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(CorvaneRun, PassesStreamsArgumentsAndFolderAndShowsTheSummary) {
    const ToolRun result = run(
        {}, {L"echo", L"two words", L"", L"\"quoted\\", L"--tree", L"--", L"B\u00fccher \u0416"});
    EXPECT_EQ(result.exit_code, 5U);
    EXPECT_THAT(result.output,
                StartsWith("[echo]\r\n[two words]\r\n[]\r\n[\"quoted\\]\r\n[--tree]\r\n[--]\r\n"
                           "[B\xC3\xBC"
                           "cher \xD0\x96]\r\nin " +
                           folder().string() + "\r\nan error\r\n"));
    EXPECT_THAT(result.output, HasSubstr("  p99 us  method\r\n"));
    EXPECT_THAT(result.output, HasSubstr("  Program.Main\r\n"));
    EXPECT_THAT(result.output, EndsWith("1 calls, 0 errors, 1 methods\r\n"));
}

TEST_P(CorvaneRun, EndsWithAllBitsOfTheExitCode) {
    EXPECT_EQ(run({}, {L"code", L"4294967295"}).exit_code, 0xFFFFFFFFU);
    EXPECT_EQ(run({}, {L"code", L"3735928559"}).exit_code, 0xDEADBEEFU);
}

TEST_P(CorvaneRun, FindsProgramsAsAShellDoes) {
    const fs::path exe = launched();
    const Environment path = {{L"PATH", exe.parent_path().wstring()}};
    EXPECT_EQ(run_tool({L"run", L"--", L"launched", L"code", L"7"}, path).exit_code, 7U);
    EXPECT_EQ(run_tool({L"run", L"--", L"program\\launched", L"code", L"7"}).exit_code, 7U);
    EXPECT_EQ(run_tool({L"run", L"--", L".\\program/launched.exe", L"code", L"7"}).exit_code, 7U);
}

TEST_P(CorvaneRun, FindsProgramsWithDotsInTheirNamesInTheCurrentFolderFirst) {
    const fs::path other = folder() / "other";
    fs::create_directory(other);
    write_file(other / "Shop.Api.exe", "no program");
    DebuggeeOptions options =
        tool_options({L"run", L"--", L"Shop.Api", L"code", L"7"}, {{L"PATH", other.wstring()}});
    options.directory = program_as(L"Shop.Api.exe").parent_path().wstring();
    EXPECT_EQ(run_debuggee(options).exit_code, 7U);
}

// From wherever it was found.
TEST_P(CorvaneRun, GivesADllToDotnet) {
    const fs::path stand_in =
        program_as(L"dotnet.exe"); // runs the same assembly, and shows what it is given
    const std::string shown =
        '[' + (stand_in.parent_path() / "launched.dll").string() + "]\r\n[x]\r\n";
    for (const wchar_t* const name : {L"program\\launched.dll", L"launched.dll"}) {
        const ToolRun result =
            run_tool({L"run", L"--", name, L"x"}, {{L"PATH", stand_in.parent_path().wstring()}});
        EXPECT_EQ(result.exit_code, 5U);
        EXPECT_THAT(result.output, StartsWith(shown));
        EXPECT_THAT(result.output,
                    EndsWith("1 calls, 0 errors, 1 methods\r\n")); // dotnet.exe is enabled
    }
}

TEST_P(CorvaneRun, SaysThatADllNeedsDotnet) {
    const fs::path exe = launched(); // the DLL is beside it, and dotnet.exe nowhere
    const ToolRun result =
        run_tool({L"run", L"--", L"program\\launched.dll"}, {{L"PATH", L"C:\\windows"}});
    EXPECT_EQ(result.exit_code, 101U);
    EXPECT_THAT(result.output,
                StartsWith("corvane: there is no dotnet.exe to run program\\launched.dll: "));
}

TEST_P(CorvaneRun, WritesWhatIsAskedFor) {
    const ToolRun result = run({L"--tree",       L"out\\tree.txt",
                                L"--summary",    L"out\\summary.txt",
                                L"--trace",      L"out\\trace.json",
                                L"--otlp",       L"out\\spans.jsonl",
                                L"--flame",      L"out\\flame.svg",
                                L"--speedscope", L"out\\speed.json",
                                L"--pprof",      L"out\\profile.pb.gz",
                                L"--sample",     L"1",
                                L"--log",        L"out\\log.txt",
                                L"--level",      L"1",
                                L"--values",     L"safe",
                                L"--method",     L"Program.*",
                                L"--no-inlining"},
                               {L"sum"});
    EXPECT_EQ(result.exit_code, 3U);
    const fs::path out = folder() / "out";
    std::string written;
    for (const char* const name : {"flame.svg", "log.txt", "profile.pb.gz", "spans.jsonl",
                                   "speed.json", "summary.txt", "trace.json", "tree.txt"}) {
        written += "corvane: wrote " + (out / name).string() + "\r\n";
    }
    EXPECT_EQ(result.output, "27\r\n" + written);
    EXPECT_THAT(text_of(out / "tree.txt"), AllOf(HasSubstr("Program.Main("), HasSubstr("count: 16"),
                                                 Not(HasSubstr("letters"))));
    EXPECT_THAT(text_of(out / "summary.txt"), EndsWith("2 calls, 0 errors, 2 methods\r\n"));
    EXPECT_THAT(text_of(out / "trace.json"), StartsWith("["));
    EXPECT_THAT(text_of(out / "spans.jsonl"), HasSubstr("\"Program.Sum\""));
    EXPECT_THAT(text_of(out / "flame.svg"), HasSubstr("<svg"));
    EXPECT_THAT(text_of(out / "speed.json"), HasSubstr("speedscope"));
    EXPECT_THAT(text_of(out / "profile.pb.gz"), StartsWith("\x1F\x8B"));
    EXPECT_THAT(text_of(out / "log.txt"), HasSubstr("CClrProfiler::Initialize(): Invoked"));
    EXPECT_THAT(text_of(out / "log.txt"), Not(HasSubstr("Instrumented, number")));
}

TEST_P(CorvaneRun, PutsTheProcessIntoNames) {
    EXPECT_EQ(run({L"--tree", L"t-{pid}.txt", L"--folded", L"f-{pid}.folded"}, {L"sum"}).exit_code,
              3U);
    const std::vector<fs::path> trees = files(folder(), L"t-", L".txt");
    ASSERT_EQ(trees.size(), 1U);
    const std::wstring process = trees[0].stem().wstring().substr(2);
    EXPECT_EQ(process.find_first_not_of(L"0123456789"), process.npos);
    EXPECT_TRUE(fs::exists(folder() / (L"f-" + process + L".folded")));
}

TEST_P(CorvaneRun, ShowsTheTreeWithValuesAfterTheOutput) {
    const ToolRun result =
        run({L"--tree", L"--values", L"all", L"--method", L"Program.Sum"}, {L"sum"});
    EXPECT_THAT(result.output, StartsWith("27\r\nthread 1\r\n  Program.Main("));
    EXPECT_THAT(result.output,
                HasSubstr("    Program.Sum(name: \"ten letters\", count: 16) = 3  ["));
    EXPECT_THAT(result.output, EndsWith("2 calls, 1 threads, 0 dropped\r\n"));
}

TEST_P(CorvaneRun, LeavesSamplesInTheCurrentFolderIfNoFileIsNamed) {
    EXPECT_EQ(run({L"--sample", L"1"}, {L"code", L"4"}).exit_code, 4U);
    EXPECT_EQ(files(folder(), L"launched-", L".svg").size(), 1U);
    EXPECT_EQ(files(folder(), L"launched-", L".speedscope.json").size(), 1U);
}

TEST_P(CorvaneRun, SaysWhyThereIsNoSummary) {
    const ToolRun killed = run({}, {L"killed"});
    EXPECT_EQ(killed.exit_code, 0xFFFFFFFFU);
    EXPECT_EQ(killed.output,
              "corvane: there is no summary, because the program wrote none before it "
              "ended with exit code 0xFFFFFFFF: it crashed or was ended from "
              "outside\r\n");
}

TEST_P(CorvaneRun, UsesAConfigurationThatIsNamed) {
    configure("<configuration><instrumentation><applications>"
              "<application name='launched.exe' corvane='Enabled'/>"
              "</applications></instrumentation></configuration>");
    const ToolRun result = run({L"--config", home.wstring()}, {L"code", L"4"});
    EXPECT_EQ(result.exit_code, 4U);
    EXPECT_THAT(result.output, EndsWith("1 calls, 0 errors, 1 methods\r\n"));
    const ToolRun without = run({L"--no-inlining", L"--config", home.wstring()}, {L"code", L"4"});
    EXPECT_EQ(without.exit_code, 2U);
    EXPECT_THAT(without.output, StartsWith("corvane: --no-inlining has no effect with --config: "));
}

TEST_P(CorvaneRun, ProfilesProgramsOfAnyName) {
    for (const wchar_t* const name : {L"it's & me (1).exe", L"B\u00fccher.exe", L"\u0416.exe"}) {
        const fs::path exe = program_as(name);
        const ToolRun result = run_tool({L"run", L"--", exe.wstring(), L"code", L"4"});
        EXPECT_EQ(result.exit_code, 4U);
        EXPECT_THAT(result.output, EndsWith("1 calls, 0 errors, 1 methods\r\n")) << result.output;
    }
}

// Without the variables that the tests themselves are given.
Environment changed_by(Environment changes) {
    for (const wchar_t* const name :
         {L"CORVANE_DOTNET_ROOTS", L"CORVANE_TARGET_PREFIX", L"CORVANE_WINE"}) {
        changes[name] = std::nullopt;
    }
    return changes;
}

TEST_P(CorvaneRun, KeepsItsVariablesFromTheProgramAndItsChildren) {
    const std::wstring child = program_as(L"child.exe").wstring();
    const ToolRun result =
        run({}, {L"parent", child, L"variables"},
            changed_by({{L"CORVANE_VALUES", L"safe"}, {L"CORVANE_STRICT_IL", L"0"}}));
    const std::string kept = "variables: CORVANE_STRICT_IL=0; CORVANE_VALUES=safe\r\n";
    EXPECT_THAT(result.output, StartsWith(kept + kept + "the child ended with 0\r\n"));
    EXPECT_THAT(result.output, EndsWith("1 calls, 0 errors, 1 methods\r\n"));
    EXPECT_THAT(run({}, {L"variables"}, changed_by({})).output, StartsWith(kNoVariables));
}

TEST_P(CorvaneRun, ProfilesChildrenThatAreAskedFor) {
    const std::wstring child = program_as(L"child.exe").wstring();
    const ToolRun result =
        run({L"--children", L"--tree", L"tree.txt", L"--flame", L"f.svg", L"--summary"},
            {L"parent", child, L"sum"});
    EXPECT_EQ(result.exit_code, 0U);
    const std::vector<fs::path> trees = files(folder(), L"tree-", L".txt");
    ASSERT_EQ(trees.size(), 2U);
    EXPECT_EQ(std::ranges::count_if(trees,
                                    [](const fs::path& tree) {
                                        return text_of(tree).find("Program.Main(") !=
                                               std::string::npos;
                                    }),
              2);
    EXPECT_EQ(files(folder(), L"f-", L".svg").size(), 2U);
    EXPECT_THAT(result.output, HasSubstr("corvane: process ")); // whose summary follows
}

TEST_P(CorvaneRun, RefusesWhatCannotBeWritten) {
    write_file(folder() / "file", "");
    for (const wchar_t* const option : {L"--tree", L"--trace", L"--otlp", L"--flame", L"--log"}) {
        const ToolRun result = run({option, L"file\\out.txt"}, {L"sum"});
        EXPECT_EQ(result.exit_code, 100U);
        EXPECT_THAT(result.output, StartsWith("corvane: cannot write " +
                                              (folder() / "file" / "out.txt").string() + ": "));
    }
    const fs::path taken = folder() / "taken.txt";
    write_file(taken, "kept");
    const OwnedHandle holder(CreateFileW(taken.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                         FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_EQ(run({L"--tree", L"taken.txt"}, {L"sum"}).exit_code, 100U);
}

TEST_P(CorvaneRun, RefusesOptionsThatContradictEachOther) {
    const std::vector<std::vector<std::wstring>> wrong = {{L"--tree", L"a", L"--log", L"A"},
                                                          {L"--level", L"5"},
                                                          {L"--sample", L"0"},
                                                          {L"--values", L"some"},
                                                          {L"--no-such-option"},
                                                          {L"--flame", L""},
                                                          {L"--tree", L""},
                                                          {L"--tree="},
                                                          {L"--env-only", L"cmd", L"--flame", L"a"},
                                                          {L"a-word"}};
    for (const auto& options : wrong) {
        const ToolRun result = run(options, {L"sum"});
        EXPECT_EQ(result.exit_code, 2U) << result.output;
        EXPECT_THAT(result.output, AllOf(StartsWith("corvane: "), Not(HasSubstr("27\r\n"))));
    }
    EXPECT_EQ(run_tool({L"run"}).exit_code, 2U);
    EXPECT_EQ(run_tool({L"run", L"--"}).exit_code, 2U);
}

TEST_P(CorvaneRun, PrintsTheVariablesForOthers) {
    const std::vector<std::wstring> options = {L"--config", home.wstring(), L"--tree",
                                               L"C:\\100%\\it's.txt"};
    const auto printed = [&](const wchar_t* form) {
        std::vector<std::wstring> all = options;
        all.insert(all.end(), {L"--env-only", form});
        const ToolRun result = run(all, {});
        EXPECT_EQ(result.exit_code, 0U);
        return result.output;
    };
    const std::string profiler = built_file(L"CorvaneProfiler.dll").string();
    EXPECT_THAT(printed(L"cmd"),
                AllOf(HasSubstr("set \"CORECLR_PROFILER_PATH=" + profiler + "\"\r\n"),
                      HasSubstr("set \"CORVANE_CALL_TREE=C:\\100%%\\it's.txt\"\r\n"),
                      HasSubstr("set \"CORVANE_HOME_APM_DOTNET=" + home.string() + "\"\r\n")));
    EXPECT_THAT(printed(L"powershell"),
                AllOf(HasSubstr("$env:CORECLR_PROFILER_PATH = '" + profiler + "'\r\n"),
                      HasSubstr("$env:CORVANE_CALL_TREE = 'C:\\100%\\it''s.txt'\r\n")));
    EXPECT_THAT(printed(L"json"), HasSubstr("\"CORVANE_CALL_TREE\": \"C:\\\\100%\\\\it's.txt\""));
}

// --- Ends from outside

bool ends(const OwnedHandle& process, DWORD milliseconds) {
    return WaitForSingleObject(process.get(), milliseconds) == WAIT_OBJECT_0;
}

class CorvaneRunEnded : public CorvaneRun {
protected:
    void TearDown() override {
        for (const OwnedHandle* const process : {&program_, &launcher_.process}) {
            if (*process) {
                TerminateProcess(process->get(), 1);
            }
        }
    }

    // Returns when the program, or its child, has written its id to the file that is its last
    // argument.
    void start(const std::vector<std::wstring>& options, std::vector<std::wstring> words) {
        const fs::path file = folder() / "started.txt";
        words.push_back(file.wstring());
        launcher_ = start_program(tool_options(command(options, words)));
        program_ = named_by(file);
    }

    static OwnedHandle named_by(const fs::path& file) {
        for (int i = 0; i < 6000; ++i) {
            std::ifstream stream(file);
            DWORD process = 0;
            if (stream >> process) {
                return OwnedHandle(OpenProcess(PROCESS_ALL_ACCESS, FALSE, process));
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        ADD_FAILURE() << "the program did not start";
        return {};
    }

    DWORD exit_code() const {
        EXPECT_TRUE(ends(launcher_.process, 300'000));
        DWORD code = 0;
        GetExitCodeProcess(launcher_.process.get(), &code);
        return code;
    }

    std::string output() const { return text_of(folder() / "output.txt"); }

    RunningProgram launcher_;
    OwnedHandle program_;
};
INSTANTIATE_TEST_SUITE_P(Runtimes, CorvaneRunEnded, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(CorvaneRunEnded, TakesTheProgramAlongAndTheNextRunClearsUp) {
    start({}, {L"wait"});
    TerminateProcess(launcher_.process.get(), 1);
    EXPECT_TRUE(ends(program_, 60'000));
    EXPECT_FALSE(fs::is_empty(temporary()));
    EXPECT_EQ(run({}, {L"code", L"4"}).exit_code, 4U);
    EXPECT_TRUE(fs::is_empty(temporary()));
}

TEST_P(CorvaneRunEnded, LeavesADetachedProgramAlone) {
    start({L"--detach"}, {L"wait"});
    TerminateProcess(launcher_.process.get(), 1);
    EXPECT_FALSE(ends(program_, 1'000));
}

TEST_P(CorvaneRunEnded, EndsWithTheCodeOfAProgramThatIsKilled) {
    start({}, {L"wait"});
    TerminateProcess(program_.get(), 77);
    EXPECT_EQ(exit_code(), 77U);
    EXPECT_THAT(
        output(),
        StartsWith(
            "corvane: there is no summary, because the program wrote none before it ended with "
            "exit code 77. "));
    EXPECT_TRUE(fs::is_empty(temporary()));
}

TEST_P(CorvaneRunEnded, LetsTheProgramsChildrenGoOn) {
    const fs::path file = folder() / "started.txt";
    EXPECT_EQ(run({}, {L"leave", program_as(L"child.exe").wstring(), file.wstring()}).exit_code,
              0U);
    program_ = named_by(file);
    EXPECT_FALSE(ends(program_, 1'000));
}

TEST_P(CorvaneRunEnded, WaitsForChildrenThatAreProfiled) {
    start({L"--children"}, {L"leave", program_as(L"child.exe").wstring()});
    const std::string going = "corvane: waiting for what the program started and did not end: ";
    for (int i = 0; i < 600 && output().find(going) == std::string::npos; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_THAT(output(), HasSubstr(going + "child.exe("));
    EXPECT_FALSE(ends(launcher_.process, 0));
    EXPECT_FALSE(fs::is_empty(temporary()));
    TerminateProcess(program_.get(), 1);
    EXPECT_EQ(exit_code(), 0U);
    EXPECT_THAT(output(), EndsWith("1 calls, 0 errors, 1 methods\r\n"));
    EXPECT_TRUE(fs::is_empty(temporary()));
}

TEST_P(CorvaneRunEnded, KeepsItsFolderForItsUser) {
    start({}, {L"wait"});
    const fs::path made = fs::directory_iterator(temporary())->path();
    PACL list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_EQ(GetNamedSecurityInfoW(made.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                                    nullptr, nullptr, &list, nullptr, &descriptor),
              static_cast<DWORD>(ERROR_SUCCESS));
    const LocalMemory<void> owner(descriptor);
    LPWSTR text = nullptr;
    ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(
        descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr));
    const LocalMemory<wchar_t> owned(text);
    EXPECT_EQ(std::wstring(text).find(L";;;WD)"), std::wstring::npos);
}

// What a console does at Ctrl+C, for a machine that has none: a thread in each of its processes
// that calls this function of the system.
void interrupt(const OwnedHandle& process) {
    const auto routine = reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine")));
    ASSERT_NE(routine, nullptr);
    const OwnedHandle thread(CreateRemoteThread(process.get(), nullptr, 0, routine,
                                                reinterpret_cast<void*>(CTRL_C_EVENT), 0, nullptr));
    ASSERT_TRUE(thread) << GetLastError();
}

TEST_P(CorvaneRunEnded, LeavesCtrlCToTheProgram) {
    start({}, {L"interrupt"});
    interrupt(launcher_.process);
    EXPECT_FALSE(ends(launcher_.process, 500));
    interrupt(program_);
    EXPECT_EQ(exit_code(), 23U);
    EXPECT_THAT(output(), EndsWith("1 calls, 0 errors, 1 methods\r\n"));
    EXPECT_TRUE(fs::is_empty(temporary()));
}

// The record is then written by the library, before the system ends the program.
TEST_P(CorvaneRunEnded, ShowsTheSummaryOfAProgramThatCtrlCEnds) {
    start({}, {L"wait"});
    interrupt(launcher_.process);
    interrupt(program_);
    EXPECT_EQ(exit_code(), 0xC000013AU);
    EXPECT_THAT(output(), HasSubstr("0 calls, 0 errors, 0 methods\r\n")); // Main has not ended
    EXPECT_TRUE(fs::is_empty(temporary()));
}

} // namespace
} // namespace corvane::testing
