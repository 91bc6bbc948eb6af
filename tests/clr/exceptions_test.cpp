// Exceptions on their way through methods that are instrumented in the strict form: the program
// sees of them what it sees in a plain run, and the recorded calls are those of its source. A
// golden file for each theme of the program holds the calls.
#include "tests/support/call_tree.h"
#include "tests/support/debuggee.h"
#include "tests/support/marked_lines.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;

constexpr DWORD kHandled = 42;
constexpr DWORD kUnhandled = 0xE0434352;
constexpr int kDepth = 8000;

struct Theme : NamedRow {
    std::wstring argument;
    DWORD exit_code = kHandled;
};

class Exceptions : public EachRuntimeRowTest<Theme> {
protected:
    // Compares with a plain run.
    void run(const std::vector<std::wstring>& arguments, DWORD exit_code, bool records,
             bool debugged = false) {
        program = L"exceptions";
        configure("<configuration><instrumentation><applications>"
                  "<application name='exceptions.exe' corvane='Enabled'/>"
                  "</applications></instrumentation></configuration>");
        Launch launch = {.executable = L"exceptions.exe",
                         .arguments = arguments,
                         .environment = {{L"CORVANE_STRICT_IL", L"1"},
                                         {L"DOTNET_STARTUP_HOOKS", managed_library().wstring()}},
                         .with_witness = false,
                         .with_debugger = debugged,
                         .raises_alike = debugged,
                         .exit_code = exit_code};
        if (records) {
            launch.environment[L"CORVANE_CALL_TREE"] = tree().wstring();
            launch.environment[L"CORVANE_VALUES"] = L"all";
        }
        watch(launch);
    }
    std::filesystem::path tree() const { return folder() / "calls.txt"; }
};

const Theme kThemes[] = {
    {{"Order"}, L"order"},
    {{"Again"}, L"again"},
    {{"Finally"}, L"finally"},
    {{"Filters"}, L"filters"},
    {{"Objects"}, L"objects"},
    {{"Async"}, L"async"},
    {{"Unhandled"}, L"unhandled", kUnhandled},
    {{"UnhandledElsewhere"}, L"unhandled-elsewhere", kUnhandled},
    {{"UnhandledObject"}, L"unhandled-object", kUnhandled},
};

class ExceptionTheme : public Exceptions {};
INSTANTIATE_TEST_SUITE_P(Themes, ExceptionTheme,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kThemes)),
                         row_name<Theme>);

TEST_P(ExceptionTheme, LooksAsWithoutInstrumentation) {
    run({row().argument}, row().exit_code, false);
    EXPECT_FALSE(std::filesystem::exists(tree()));
}

// A debugger stops at each exception where it is thrown, and at one that nothing handles once more:
// neither more often nor elsewhere because a method in between is instrumented.
TEST_P(ExceptionTheme, LooksAsWithoutInstrumentationToADebugger) {
    run({row().argument}, row().exit_code, true, true);
}

TEST_P(ExceptionTheme, IsRecorded) {
    run({row().argument}, row().exit_code, true);
    std::string name = "exceptions/";
    for (const wchar_t c : row().argument) {
        name += static_cast<char>(c);
    }
    expect_golden(name + ".txt", joined_lines(read_call_lines(tree())));
}

class DeepException : public Exceptions {};
INSTANTIATE_TEST_SUITE_P(Themes, DeepException,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::Values(Theme{{"Deep"}, L"deep"})),
                         row_name<Theme>);

TEST_P(DeepException, LooksAsWithoutInstrumentation) {
    run({row().argument, std::to_wstring(kDepth)}, kHandled, false);
}

TEST_P(DeepException, IsRecordedAtEveryCall) {
    run({row().argument, std::to_wstring(kDepth)}, kHandled, true);
    std::vector<std::string> expected = {"thread 1",
                                         "  Program.Main(arguments: {System.String[]}) = 42"};
    for (int depth = kDepth; depth > 0; --depth) {
        const auto indent = static_cast<std::size_t>(2 * std::min(kDepth - depth + 2, 100));
        expected.push_back(std::string(indent, ' ') + "Deep.Descend(depth: " +
                           std::to_string(depth) + ") ! System.InvalidOperationException: deep");
    }
    expected.push_back(std::to_string(kDepth + 1) + " calls, 1 threads, 0 dropped");
    const std::vector<std::string> lines = read_call_lines(tree());
    EXPECT_EQ(lines.size(), expected.size());
    const auto differing = std::ranges::mismatch(lines, expected);
    if (differing.in1 != lines.end() && differing.in2 != expected.end()) {
        ADD_FAILURE() << *differing.in1 << "\ninstead of\n" << *differing.in2;
    }
}

// The program is dumped where nobody handles its exception. A reader of dumps then sees the stack
// of the throw, with the frames of a plain run.
class CrashDump : public EachRuntimeTest {
protected:
    std::vector<std::string> crash(Environment environment, const wchar_t* name) {
        const fs::path dump = folder() / (std::wstring(name) + L".dmp");
        environment[L"DOTNET_DbgEnableMiniDump"] = L"1";
        environment[L"DOTNET_DbgMiniDumpType"] = L"4"; // all memory
        // The runtime takes no folder with a blank in its name.
        environment[L"DOTNET_DbgMiniDumpName"] = dump.filename().wstring();
        run_to_end(L"exceptions", {L"unhandled"}, environment, kUnhandled);

        const fs::path frames = folder() / "frames.txt";
        run_to_end(L"dumped", {dump.wstring(), runtime_folder().wstring(), frames.wstring()}, {},
                   0);
        fs::remove(dump);
        return read_call_lines(frames);
    }

private:
    void run_to_end(const std::wstring& name, const std::vector<std::wstring>& arguments,
                    Environment environment, DWORD exit_code) {
        environment.merge(clean_environment());
        const fs::path output = folder() / "output.txt";
        DebuggeeOptions options;
        options.program = (built_file(L"managed") / name / (name + L".exe")).wstring();
        options.arguments = arguments;
        options.environment = environment;
        options.directory = folder().wstring();
        options.output_file = output.wstring();
        options.timeout = std::chrono::minutes(5);
        const DebuggeeResult result = run_debuggee(options);
        EXPECT_FALSE(result.timed_out);
        EXPECT_EQ(result.exit_code, exit_code) << ::testing::PrintToString(read_call_lines(output));
    }

    fs::path runtime_folder() const {
        const fs::path versions =
            fs::path(*clean_environment().at(L"DOTNET_ROOT")) / "shared" / "Microsoft.NETCore.App";
        return fs::directory_iterator(versions)->path();
    }
};
INSTANTIATE_TEST_SUITE_P(Runtimes, CrashDump, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(CrashDump, ShowsTheStackOfAPlainRun) {
    configure("<configuration><instrumentation><applications>"
              "<application name='exceptions.exe' corvane='Enabled'/>"
              "</applications></instrumentation></configuration>");
    const fs::path tree = folder() / "calls.txt";
    const std::vector<std::string> plain = crash({}, L"plain");
    const std::vector<std::string> instrumented =
        crash({{L"CORECLR_ENABLE_PROFILING", L"1"},
               {L"CORECLR_PROFILER", L"{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}"},
               {L"CORECLR_PROFILER_PATH", library.wstring()},
               {L"CORVANE_HOME_APM_DOTNET", home.wstring()},
               {L"CORVANE_STRICT_IL", L"1"},
               {L"CORVANE_CALL_TREE", tree.wstring()},
               {L"DOTNET_STARTUP_HOOKS", managed_library().wstring()}},
              L"instrumented");
    EXPECT_EQ(instrumented, plain);
    EXPECT_THAT(plain, ::testing::Contains("ManagedMethod Unhandled.Fails"));
    EXPECT_THAT(plain,
                ::testing::Contains("System.InvalidOperationException: nobody handles this"));
    EXPECT_THAT(read_call_lines(tree),
                ::testing::Contains(::testing::HasSubstr("Unhandled.Fails(number)")));
}

} // namespace
} // namespace corvane::testing
