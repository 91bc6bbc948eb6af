// CORVANE_METHODS in a real runtime: what the patterns choose, what is said about them, and a
// program that goes on as it does plain when they mean everything.
#include "tests/support/call_tree.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>

#include <chrono>

namespace corvane::testing {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

struct Mode : NamedRow {
    const wchar_t* strict;
};
const Mode kModes[] = {{{"Default"}, L"0"}, {{"Strict"}, L"1"}};

class Patterns : public EachRuntimeRowTest<Mode> {
protected:
    Watched run(const wchar_t* name, const std::wstring& patterns, Launch launch) {
        configure("<configuration><instrumentation><applications>"
                  "<application name='watched.exe' corvane='Enabled'/>"
                  "</applications></instrumentation></configuration>");
        program = name;
        launch.executable = L"watched.exe";
        launch.environment[L"CORVANE_STRICT_IL"] = row().strict;
        launch.environment[L"CORVANE_METHODS"] = patterns;
        launch.environment[L"DOTNET_STARTUP_HOOKS"] = managed_library().wstring();
        return watch(launch);
    }
};
INSTANTIATE_TEST_SUITE_P(Modes, Patterns,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kModes)),
                         row_name<Mode>);

// The whole framework, but for what injected code runs on.
TEST_P(Patterns, MayMeanEverything) {
    run(L"workload", L"*",
        {.with_debugger = false, .timeout = std::chrono::minutes(5), .exit_code = 42});
}

TEST_P(Patterns, MayMeanEverythingAndBeRecorded) {
    const std::filesystem::path tree = folder() / "calls.txt";
    run(L"workload", L"*",
        {.environment = {{L"CORVANE_CALL_TREE", tree.wstring()}},
         .with_debugger = false,
         .timeout = std::chrono::minutes(5),
         .exit_code = 42});
    EXPECT_GT(read_call_tree(tree).methods.size(), 1'000U);
}

} // namespace
} // namespace corvane::testing
