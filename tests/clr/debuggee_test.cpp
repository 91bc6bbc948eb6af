#include "tests/support/debuggee.h"

#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

DebuggeeOptions command(const std::vector<std::wstring>& arguments) {
    DebuggeeOptions options;
    wchar_t system[MAX_PATH] = {};
    GetSystemDirectoryW(system, MAX_PATH);
    options.program = (fs::path(system) / "cmd.exe").wstring();
    options.arguments = arguments;
    return options;
}

TEST(Debuggee, GivesTheExitCode) {
    const DebuggeeResult result = run_debuggee(command({L"/c", L"exit", L"77"}));
    EXPECT_EQ(result.exit_code, 77U);
    EXPECT_FALSE(result.timed_out);
}

TEST(Debuggee, SetsAndRemovesVariablesAndWritesOutput) {
    const OwnFolder folder;
    SetEnvironmentVariableW(L"CORVANE_TEST_INHERITED", L"inherited");
    SetEnvironmentVariableW(L"CORVANE_TEST_REMOVED", L"removed");
    SetEnvironmentVariableW(L"CORVANE_TEST_CHANGED", L"before");
    DebuggeeOptions options = command({L"/c", L"echo",
                                       L"%CORVANE_TEST_INHERITED%,%CORVANE_TEST_REMOVED%,"
                                       L"%CORVANE_TEST_CHANGED%,%CORVANE_TEST_SET%,%CD%"});
    options.environment = {{L"corvane_test_changed", L"changed"},
                           {L"CORVANE_TEST_SET", L"set"},
                           {L"CORVANE_TEST_REMOVED", std::nullopt}};
    options.directory = folder.path().wstring();
    options.output_file = (folder.path() / "output.txt").wstring();
    EXPECT_EQ(run_debuggee(options).exit_code, 0U);
    for (const wchar_t* name :
         {L"CORVANE_TEST_INHERITED", L"CORVANE_TEST_REMOVED", L"CORVANE_TEST_CHANGED"}) {
        SetEnvironmentVariableW(name, nullptr);
    }
    std::ifstream stream(fs::path(options.output_file), std::ios::binary);
    const std::string output(std::istreambuf_iterator<char>(stream), {});
    EXPECT_EQ(output,
              "inherited,%CORVANE_TEST_REMOVED%,changed,set," + folder.path().string() + "\r\n");
}

TEST(Debuggee, RefusesAProgramThatIsNotThere) {
    DebuggeeOptions options = command({});
    options.program += L".missing";
    EXPECT_THROW(run_debuggee(options), std::system_error);
}

// --- What only a program of our own does

class DebuggeeChild : public ::testing::Test {
protected:
    DebuggeeResult run(const std::wstring& what) {
        options.on_debug_output = [this](const std::wstring& line) { lines.push_back(line); };
        return run_alone(what);
    }

    DebuggeeResult run_alone(const std::wstring& what) {
        options.program = built_file(L"debuggee_child.exe").wstring();
        options.arguments = {what};
        return run_debuggee(options);
    }

    static void expect_ended(const DebuggeeResult& result) {
        EXPECT_TRUE(result.timed_out);
        EXPECT_THAT(result.stacks, AllOf(StartsWith("thread "), HasSubstr("  ntdll!"),
                                         HasSubstr("  debuggee_child")));
    }

    DebuggeeOptions options;
    Lines lines;
};

TEST_F(DebuggeeChild, WritesDebugOutputWideAndNarrow) {
    EXPECT_EQ(run(L"write").exit_code, 0U);
    EXPECT_EQ(lines, (Lines{L"wide B\u00fccher \u0416", L"", std::wstring(3000, L'x'),
                            L"narrow B\u00fccher"}));
}

TEST_F(DebuggeeChild, MayHandleItsOwnExceptions) {
    EXPECT_EQ(run(L"handle").exit_code, 12U);
    EXPECT_EQ(lines, Lines());
}

TEST_F(DebuggeeChild, EndsAtItsOwnBreakpointAsWithoutADebugger) {
    EXPECT_EQ(run(L"break").exit_code, static_cast<DWORD>(EXCEPTION_BREAKPOINT));
}

TEST_F(DebuggeeChild, IsEndedWhenItsTimeIsOver) {
    options.timeout = std::chrono::milliseconds(500);
    expect_ended(run(L"sleep"));
}

TEST_F(DebuggeeChild, RunsWithoutADebuggerWhenNobodyReads) {
    EXPECT_EQ(run_alone(L"write").exit_code, 0U);
    EXPECT_EQ(run_alone(L"is debugged").exit_code, 0U);
    EXPECT_EQ(run(L"is debugged").exit_code, 1U);
}

TEST_F(DebuggeeChild, IsEndedWhenItsTimeIsOverWithoutADebuggerToo) {
    options.timeout = std::chrono::milliseconds(500);
    expect_ended(run_alone(L"sleep"));
}

} // namespace
} // namespace corvane::testing
