// corvane run: the program is what it is without, and what was asked for is there afterwards.
#include "base/local_memory.h"
#include "tests/support/tool_test.h"

#include <gmock/gmock.h>

#include <aclapi.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <thread>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const wchar_t* kFileOptions[] = {L"--tree",  L"--summary", L"--trace",
                                           L"--otlp",  L"--flame",   L"--speedscope",
                                           L"--pprof", L"--folded",  L"--log"};
constexpr char kNoVariables[] = "variables: \r\n";

const Environment kPatient = {{L"CORVANE_END_SECONDS", L"120"}}; // on a busy machine, too

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

// What is shown of a run is not among what its program writes.
TEST_P(CorvaneRun, KeepsTheStreamsApart) {
    write_file(folder() / "input.txt", "first line\r\nsecond line\r\n");
    const auto errors = [&](const std::vector<std::wstring>& words, DWORD exit_code,
                            const std::string& output) {
        DebuggeeOptions options = tool_options(command({}, words));
        options.input_file = (folder() / "input.txt").wstring();
        options.error_file = (folder() / "errors.txt").wstring();
        EXPECT_EQ(run_debuggee(options).exit_code, exit_code);
        EXPECT_EQ(text_of(options.output_file), output);
        return text_of(options.error_file);
    };
    EXPECT_THAT(errors({L"input"}, 0, "read first line|second line\r\n"),
                AllOf(HasSubstr("  Program.Main\r\n"), Not(HasSubstr("read ")),
                      EndsWith("1 calls, 0 errors, 1 methods\r\n")));
    EXPECT_THAT(errors({L"echo"}, 5, "[echo]\r\nin " + folder().string() + "\r\n"),
                AllOf(StartsWith("an error\r\n"), HasSubstr("  Program.Main\r\n")));
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
                               {L"sum"}, kPatient);
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

TEST_P(CorvaneRun, KeepsTheRuntimeFromInlining) {
    const Environment optimised = {{L"DOTNET_TieredCompilation", L"0"}};
    EXPECT_THAT(run({}, {L"inlined"}, optimised).output, StartsWith("this is ShowInlining\r\n"));
    EXPECT_THAT(run({L"--no-inlining"}, {L"inlined"}, optimised).output,
                StartsWith("this is NameOfThis\r\n"));
}

TEST_P(CorvaneRun, RecordsNoValuesWhateverItsOwnVariablesSay) {
    const Environment all = {{L"CORVANE_VALUES", L"all"}};
    EXPECT_THAT(run({L"--tree", L"--method", L"Program.Sum"}, {L"sum"}, all).output,
                HasSubstr("\"ten letters\""));
    EXPECT_THAT(
        run({L"--tree", L"--method", L"Program.Sum", L"--values", L"none"}, {L"sum"}, all).output,
        AllOf(HasSubstr("    Program.Sum(name, count)  ["), Not(HasSubstr("ten letters"))));
}

TEST_P(CorvaneRun, TakesSeveralPatterns) {
    const auto methods = [&](std::vector<std::wstring> patterns) {
        std::vector<std::wstring> options;
        for (const std::wstring& pattern : patterns) {
            options.insert(options.end(), {L"--method", pattern});
        }
        return run(options, {L"sum"}).output;
    };
    EXPECT_THAT(methods({L"Nothing.*", L"Program.S*"}), HasSubstr("  Program.Sum\r\n"));
    EXPECT_THAT(methods({L"Nothing.*", L"Program.S*", L"!Program.Sum"}),
                AllOf(HasSubstr("  Program.Main\r\n"), Not(HasSubstr("Program.Sum"))));
}

TEST_P(CorvaneRun, SendsSpansToTheUsualAddressIfNoneIsNamed) {
    const auto endpoint = [&](const std::vector<std::wstring>& otlp) {
        return printed_variables(otlp)[L"OTEL_EXPORTER_OTLP_ENDPOINT"];
    };
    EXPECT_EQ(endpoint({L"--otlp"}), L"http://localhost:4318");
    EXPECT_EQ(endpoint({L"--otlp", L"https://one:1/x"}), L"https://one:1/x");
    EXPECT_EQ(endpoint({L"--otlp", L"a.jsonl"}), std::nullopt);
    EXPECT_EQ(printed_variables({L"--otlp", L"a.jsonl"})[L"CORVANE_OTLP_FILE"],
              (folder() / "a.jsonl").wstring());
}

TEST_P(CorvaneRun, SaysWhyThereIsNoSummary) {
    const ToolRun killed = run({}, {L"killed"});
    EXPECT_EQ(killed.exit_code, 0xFFFFFFFFU);
    EXPECT_EQ(killed.output,
              "corvane: there is no summary, because the program wrote none before it "
              "ended with exit code 0xFFFFFFFF: it crashed or was ended from "
              "outside\r\n");
}

TEST_P(CorvaneRun, EndsAsAProgramThatCrashes) {
    for (const wchar_t* const crash : {L"violate", L"fail"}) {
        DebuggeeOptions plain = tool_options({crash});
        plain.program = launched();
        const DWORD exit_code = run_debuggee(plain).exit_code;
        const ToolRun result = run({}, {crash});
        EXPECT_EQ(result.exit_code, exit_code);
        std::array<char, 11> text{};
        std::snprintf(text.data(), text.size(), "0x%08lX", exit_code);
        EXPECT_GE(exit_code, 0xC0000000U); // an exception of the system
        EXPECT_THAT(result.output,
                    AllOf(StartsWith(text_of(plain.output_file)),
                          EndsWith("corvane: there is no summary, because the program wrote none "
                                   "before it ended with exit code " +
                                   std::string(text.data()) +
                                   ": it crashed or was ended from outside\r\n")));
    }
    // The managed library hears of this.
    const ToolRun result = run({}, {L"throw"});
    EXPECT_EQ(result.exit_code, 0xE0434352U);
    EXPECT_THAT(result.output, AllOf(HasSubstr("System.InvalidOperationException: on purpose"),
                                     EndsWith("1 calls, 1 errors, 1 methods\r\n")));
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

TEST_P(CorvaneRun, WritesToFoldersWhoseNamesTheCodePageLacks) {
    std::vector<std::wstring> options;
    for (const wchar_t* const option : kFileOptions) {
        options.insert(options.end(), {option, L"\u0416\\" + std::wstring(option) + L".txt"});
    }
    EXPECT_EQ(run(options, {L"sum"}, kPatient).exit_code, 3U);
    for (const wchar_t* const option : kFileOptions) {
        const fs::path file = folder() / L"\u0416" / (std::wstring(option) + L".txt");
        EXPECT_NE(text_of(file), "") << fs::path(option);
    }
}

TEST_P(CorvaneRun, HasAFolderForTemporaryFilesWhoseNameTheCodePageLacks) {
    const fs::path own = folder() / L"\u0416";
    fs::create_directory(own);
    DebuggeeOptions options = tool_options(command({}, {L"code", L"4"}));
    options.environment[L"TMP"] = own.wstring();
    options.environment[L"TEMP"] = own.wstring();
    EXPECT_EQ(run_debuggee(options).exit_code, 4U);
    EXPECT_THAT(text_of(options.output_file), EndsWith("1 calls, 0 errors, 1 methods\r\n"));
    EXPECT_TRUE(fs::is_empty(own));
    EXPECT_TRUE(files(_wgetenv(L"ProgramData"), L"corvane-run-", L"").empty());
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
    const fs::path taken = folder() / "taken.txt";
    write_file(taken, "kept");
    OwnedHandle holder(CreateFileW(taken.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
    for (const wchar_t* const option : kFileOptions) {
        for (const wchar_t* const file : {L"file\\out.txt", L"taken.txt"}) {
            const ToolRun result = run({option, file}, {L"sum"});
            EXPECT_EQ(result.exit_code, 100U);
            EXPECT_THAT(result.output,
                        StartsWith("corvane: cannot write " + (folder() / file).string() + ": "));
        }
    }
    holder.reset();
    EXPECT_EQ(text_of(taken), "kept");
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
                                                          {L"--env-only", L"cmd", L"--no-inlining"},
                                                          {L"--env-only", L"cmd", L"--detach"},
                                                          {L"a-word"}};
    for (const auto& options : wrong) {
        const ToolRun result = run(options, {L"sum"});
        EXPECT_EQ(result.exit_code, 2U) << result.output;
        EXPECT_THAT(result.output, AllOf(StartsWith("corvane: "), Not(HasSubstr("27\r\n"))));
    }
    EXPECT_EQ(run_tool({L"run"}).exit_code, 2U);
    EXPECT_EQ(run_tool({L"run", L"--"}).exit_code, 2U);
    const ToolRun checked = run_tool({L"check", L"--pool", L"X", L"--service", L"Y"});
    EXPECT_EQ(checked.exit_code, 2U);
    EXPECT_THAT(checked.output, StartsWith("corvane: --pool excludes --service\r\n"));
}

TEST_P(CorvaneRun, RefusesAProgramWhereACommandTakesNone) {
    const std::vector<std::vector<std::wstring>> commands = {
        {L"explain", launched()},
        {L"list"},
        {L"sample", L"--pid", L"1"},
        {L"summary", L"--pid", L"1"},
        {L"flush", L"--pid", L"1"},
        {L"status"},
        {L"register"},
        {L"unregister"},
        {L"install", L"--dir", L"installed", L"--what-if"},
        {L"uninstall", L"--dir", L"installed", L"--what-if"},
        {L"watch", L"--level", L"4"}};
    for (std::vector<std::wstring> words : commands) {
        words.insert(words.end(), {L"--", launched()});
        const ToolRun result = run_tool(words);
        EXPECT_EQ(result.exit_code, 2U);
        EXPECT_EQ(result.output, "corvane: " + fs::path(words[0]).string() +
                                     " takes no program: remove what stands behind \"--\"\r\n");
    }
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

// A copy of the tool with what belongs to it, in the place of the one beside this program.
class CorvaneRunCopied : public CorvaneRun {
protected:
    void SetUp() override {
        CorvaneRun::SetUp();
        fs::create_directories(copy_ / "managed");
        for (const wchar_t* const name : {L"corvane.exe", L"CorvaneProfiler.dll"}) {
            fs::copy_file(built_file(name), copy_ / name);
        }
        for (const wchar_t* const name : {L"kite", L"kite_framework"}) {
            fs::create_directory(copy_ / "managed" / name);
            fs::copy_file(built_file(L"managed") / name / "kite.managed.dll",
                          copy_ / "managed" / name / "kite.managed.dll");
        }
        tool = copy_ / "corvane.exe";
    }

    // What a program writes that has these variables, started by nobody of ours.
    std::string alone(const std::wstring& file, const std::vector<std::wstring>& words,
                      const Environment& variables) const {
        DebuggeeOptions options = tool_options(words, variables);
        options.program = file;
        EXPECT_EQ(run_debuggee(options).exit_code, 4U);
        return text_of(options.output_file);
    }

    // The program is to be one of .NET 6.
    void make_old() const {
        write_file(program_folder() / "launched.runtimeconfig.json",
                   R"({"runtimeOptions": {"tfm": "net6.0", "framework":
                   {"name": "Microsoft.NETCore.App", "version": "6.0.0"}}})");
    }

    // Its runtime: this one, under a number of that one.
    std::wstring old_root() const {
        const fs::path here = *clean_environment()[L"DOTNET_ROOT"];
        const fs::path root = folder() / "old";
        const fs::path runtimes = fs::path("shared") / "Microsoft.NETCore.App";
        fs::create_directories(root / runtimes);
        fs::create_directories(root / "host");
        fs::copy(here / "host", root / "host", fs::copy_options::recursive);
        fs::copy(fs::directory_iterator(here / runtimes)->path(), root / runtimes / "6.0.36",
                 fs::copy_options::recursive);
        return root.wstring();
    }

    static void enable_in(const fs::path& place) {
        fs::create_directories(place);
        write_file(place / "agent.config", "<configuration><instrumentation><applications>"
                                           "<application name='launched.exe' corvane='Enabled'/>"
                                           "</applications></instrumentation></configuration>");
    }

    const fs::path copy_ = folder() / "copy";
};
INSTANTIATE_TEST_SUITE_P(Runtimes, CorvaneRunCopied, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(CorvaneRunCopied, PrintsVariablesThatWork) {
    enable_in(home);
    const std::wstring exe = launched();
    const Environment named = printed_variables({L"--config", home.wstring()});
    EXPECT_THAT(alone(exe, {L"code", L"4"}, named), EndsWith("1 calls, 0 errors, 1 methods\r\n"));
    EXPECT_THAT(alone(exe, {L"code", L"4"}, printed_variables({})),
                HasSubstr("there is no " + (copy_ / "agent.config").string()));
    enable_in(copy_);
    EXPECT_THAT(alone(exe, {L"code", L"4"}, printed_variables({})),
                EndsWith("1 calls, 0 errors, 1 methods\r\n"));
}

TEST_P(CorvaneRunCopied, PrintsABatchFileThatWorks) {
    enable_in(copy_);
    fs::create_directory(folder() / "100% & more");
    const ToolRun printed =
        run_tool({L"run", L"--env-only", L"cmd", L"--tree", L"100% & more\\it's.txt"});
    const fs::path batch = folder() / "start.bat";
    write_file(batch, "@echo off\r\n" + printed.output + '"' + fs::path(launched()).string() +
                          "\" code 4\r\nexit %errorlevel%\r\n");
    wchar_t system[MAX_PATH] = {};
    GetSystemDirectoryW(system, MAX_PATH);
    EXPECT_EQ(alone((fs::path(system) / "cmd.exe").wstring(), {L"/c", batch.wstring()}, {}), "");
    EXPECT_THAT(text_of(folder() / "100% & more" / "it's.txt"), HasSubstr("Program.Main("));
}

TEST_P(CorvaneRunCopied, RunsAProgramOfAnOldRuntimeWithTheOtherBuild) {
    make_old();
    const fs::path other = copy_ / "managed" / "kite" / "kite.managed.dll";
    fs::copy_file(built_file(L"CorvaneProfiler.dll"), other, fs::copy_options::overwrite_existing);
    const ToolRun recorded = run({}, {L"code", L"4"}, {{L"DOTNET_ROOT", old_root()}});
    EXPECT_EQ(recorded.exit_code, 4U);
    EXPECT_THAT(recorded.output, EndsWith("1 calls, 0 errors, 1 methods\r\n"));

    const ToolRun missing = run({}, {L"code", L"4"}); // that runtime
    EXPECT_EQ(missing.exit_code, 0x80008096U);
    EXPECT_THAT(missing.output,
                AllOf(HasSubstr("You must install or update .NET to run this application."),
                      EndsWith("\r\ncorvane: there is no summary, because the program wrote none "
                               "before it ended with exit code 0x80008096: the .NET host could not "
                               "start it, for the reason in its own lines above\r\n")));

    fs::copy_file(managed_library(), other, fs::copy_options::overwrite_existing);
    fs::remove_all(copy_ / "managed" / "kite_framework");
    const ToolRun refused = run({}, {L"code", L"4"});
    EXPECT_EQ(refused.exit_code, 106U);
    EXPECT_THAT(refused.output,
                AllOf(StartsWith("corvane: "), HasSubstr(" runs on .NET 6.0.0, and "),
                      EndsWith("(docs/troubleshooting.md#runtime-too-old)\r\n")));
}

TEST_P(CorvaneRunCopied, SaysWhatIsMissing) {
    const std::string is_missing =
        " is not beside corvane.exe in " + copy_.string() + ": copy it there\r\n";
    EXPECT_EQ(run_tool({L"status"}).exit_code, 0U);
    fs::remove(copy_ / "managed" / "kite" / "kite.managed.dll");
    const ToolRun status = run_tool({L"status"});
    EXPECT_EQ(status.exit_code, 100U);
    EXPECT_THAT(status.output, AllOf(HasSubstr("\r\nManaged library: missing\r\n"),
                                     HasSubstr("\r\nProfiler:        " + copy_.string())));
    const ToolRun unrecorded = run({}, {L"code", L"4"});
    EXPECT_EQ(unrecorded.exit_code, 100U);
    EXPECT_EQ(unrecorded.output, "corvane: kite.managed.dll" + is_missing);
    fs::remove(copy_ / "CorvaneProfiler.dll");
    EXPECT_THAT(run_tool({L"status"}).output, HasSubstr("\r\nProfiler:        missing\r\n"));
    const ToolRun unprofiled = run({}, {L"code", L"4"});
    EXPECT_EQ(unprofiled.exit_code, 100U);
    EXPECT_EQ(unprofiled.output, "corvane: CorvaneProfiler.dll" + is_missing);
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

// And what it needs, until it has ended.
TEST_P(CorvaneRunEnded, LeavesADetachedProgramAlone) {
    start({L"--detach"}, {L"wait"});
    TerminateProcess(launcher_.process.get(), 1);
    EXPECT_TRUE(ends(launcher_.process, 60'000));
    EXPECT_FALSE(ends(program_, 1'000));
    const auto run_another = [&] {
        DebuggeeOptions options = tool_options(command({}, {L"code", L"4"}));
        options.output_file = (folder() / "another.txt").wstring();
        EXPECT_EQ(run_debuggee(options).exit_code, 4U);
    };
    run_another();
    const std::vector<fs::path> left = files(temporary(), L"corvane-run-", L"");
    ASSERT_EQ(left.size(), 1U);
    EXPECT_TRUE(fs::exists(left[0] / "agent.config"));
    TerminateProcess(program_.get(), 1);
    EXPECT_TRUE(ends(program_, 60'000));
    run_another();
    EXPECT_TRUE(fs::is_empty(temporary()));
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
    EXPECT_EQ(rights_in(descriptor).find(L";;;WD)"), std::wstring::npos);
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
