// CORVANE_METHODS in a real runtime: what the patterns choose, what is said about them, and a
// program that goes on as it does plain when they mean everything.
#include "tests/support/call_tree.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <iterator>

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

// Also where the program ends itself in the midst of a method.
TEST_P(Patterns, AreNamedAtTheEndIfTheyNeverMatched) {
    const bool strict = row().strict[0] == L'1';
    // Optimised code of the default form has small methods inlined.
    const std::vector<const wchar_t*> never_matched =
        strict ? std::vector{L"Nowhere.*", L"!Elsewhere.Spared.*_*", L"Elsewhere.Unmarked.Nested.*"}
               : std::vector{L"Elsewhere.Spared.Same", L"Nowhere.*", L"!Elsewhere.Spared.*_*",
                             L"Elsewhere.Unmarked+Nested.*", L"Elsewhere.Unmarked.Nested.*"};
    for (const Lines& arguments : {Lines{}, Lines{L"exit"}}) {
        const std::filesystem::path tree = folder() / "calls.txt";
        const Lines log = run(L"small",
                              L"Elsewhere.Spared.Same; ;;Nowhere.*;!Elsewhere.Spared.*_*;! ;"
                              L"Elsewhere.Unmarked+Nested.*;Elsewhere.Unmarked.Nested.*;*.Generic",
                              {.arguments = arguments,
                               .environment = {{L"CORVANE_CALL_TREE", tree.wstring()},
                                               {L"CORVANE_CALL_LIMIT", L"1000000"},
                                               {L"DOTNET_TieredCompilation", L"0"}},
                               .exit_code = 42})
                              .log;
        Lines said;
        std::ranges::copy_if(log, std::back_inserter(said), [](const std::wstring& line) {
            return line.starts_with(L"CORVANE_METHODS");
        });
        Lines expected = {L"CORVANE_METHODS: \"!\" is left out: nothing stands behind the \"!\""};
        for (const wchar_t* const pattern : never_matched) {
            expected.push_back(L"CORVANE_METHODS: \"" + std::wstring(pattern) +
                               L"\" never matched a method");
        }
        EXPECT_EQ(said, expected);
        EXPECT_THAT(log, Not(Contains(HasSubstr(L"prologue for: Elsewhere.")))) << "a detail";
        const auto methods = read_call_tree(tree).methods;
        EXPECT_EQ(methods.contains("Elsewhere.Spared.Same"), strict);
        EXPECT_FALSE(methods.contains("Elsewhere.Unmarked.Half"));
        EXPECT_FALSE(
            methods.contains("Callers.Generic")); // the name is met, and is a generic method's
    }
}

// None of these stops the program, or start-up.
TEST_P(Patterns, MayBeBad) {
    std::wstring thousand;
    for (int i = 0; i < 1'000; ++i) {
        thousand += L"N" + std::to_wstring(i) + L".*;";
    }
    for (const std::wstring& patterns :
         {std::wstring(), std::wstring(L" ;; "), std::wstring(L"!"), std::wstring(L"!*"),
          thousand + L"N1000.*", std::wstring(30'000, L'*'), std::wstring(L"%n%s.*;[a]b;\"\\")}) {
        const Lines log = run(L"program", patterns, {}).log;
        EXPECT_THAT(log, Contains(L"CClrProfiler::Initialize(): after should trace"));
        EXPECT_THAT(log, Not(Contains(HasSubstr(L"step was left out"))));
    }
}

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
    EXPECT_GT(read_call_tree(tree).methods.size(), 400U);
}

} // namespace
} // namespace corvane::testing
