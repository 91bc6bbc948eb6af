// Exceptions on their way through methods that are instrumented in the strict form: the program
// sees of them what it sees in a plain run, and the recorded calls are those of its source. A
// golden file for each theme of the program holds the calls.
#include "tests/support/call_tree.h"
#include "tests/support/marked_lines.h"
#include "tests/support/runtime_test.h"

#include <algorithm>
#include <string>
#include <vector>

namespace corvane::testing {
namespace {

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

} // namespace
} // namespace corvane::testing
