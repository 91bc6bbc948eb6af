// Many threads that compile and call instrumented methods at once: no call may be lost, whatever
// the runtime compiles in whatever order. CORVANE_STRESS_SECONDS says for how long, 20 seconds if
// it is not set.
#include "tests/support/call_tree.h"
#include "tests/support/observations.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <iostream>

namespace corvane::testing {
namespace {

constexpr int kRuntime = 10;
constexpr int kThreads = 8;

struct Setting : NamedRow {
    Environment environment;
    const char* settings; // of the program in agent.config
};

const Setting kSettings[] = {
    // Compiled again after a few calls, at once and in the background.
    {{"Tiered"},
     {{L"DOTNET_TieredCompilation", L"1"},
      {L"DOTNET_TC_CallCountThreshold", L"4"},
      {L"DOTNET_TC_CallCountingDelayMs", L"0"},
      {L"DOTNET_TC_BackgroundWorkerTimeoutMs", L"0"}},
     ""},
    {{"Untiered"}, {{L"DOTNET_TieredCompilation", L"0"}}, " inlining='Disabled'"},
};

int seconds_to_run() {
    const char* const value = std::getenv("CORVANE_STRESS_SECONDS");
    return value != nullptr ? std::atoi(value) : 20;
}

class Stress : public RuntimeTest, public ::testing::WithParamInterface<Setting> {
protected:
    void SetUp() override { use_runtime(kRuntime); }
};
INSTANTIATE_TEST_SUITE_P(Settings, Stress, ::testing::ValuesIn(kSettings),
                         [](const auto& setting) { return std::string(setting.param.name); });

TEST_P(Stress, LosesNoCall) {
    configure(std::string("<configuration><instrumentation><applications>"
                          "<application name='stress.exe' corvane='Enabled'") +
              GetParam().settings + "/></applications></instrumentation></configuration>");
    program = L"stress";
    const std::filesystem::path report = folder() / "report.txt";
    const std::filesystem::path tree = folder() / "tree.txt";
    const std::filesystem::path counted = folder() / "calls.txt";
    const int seconds = seconds_to_run();
    Launch launch = {.executable = L"stress.exe",
                     .environment = GetParam().environment,
                     .witness = L"observer.dll",
                     .with_debugger = false,
                     .timeout = std::chrono::seconds(2 * seconds + 240),
                     .exit_code = 42};
    launch.environment[L"CORVANE_STRICT_IL"] = L"1";
    launch.environment[L"CORVANE_STRESS_PROGRAM_SECONDS"] = std::to_wstring(seconds);
    launch.environment[L"CORVANE_STRESS_CALLS"] = counted.wstring();
    launch.environment[L"CORVANE_OBSERVER_READS_LOG"] = L"1";
    launch.environment[L"CORVANE_OBSERVER_REPORT"] = report.wstring();
    launch.environment[L"CORVANE_CALL_TREE"] = tree.wstring();
    launch.environment[L"CORVANE_VALUES"] = L"all";
    launch.environment[L"DOTNET_STARTUP_HOOKS"] = managed_library().wstring();
    watch(launch);

    long long calls = 0;
    std::ifstream(counted) >> calls;
    const CallTree recorded = read_call_tree(tree);
    EXPECT_EQ(recorded.calls + recorded.dropped, calls);
    EXPECT_GT(calls, 10'000);
    EXPECT_EQ(recorded.failures, 0);
    EXPECT_EQ(recorded.unended, 0);
    EXPECT_EQ(recorded.threads, 1 + kThreads);

    Observations seen = read_observations(report);
    std::cout << calls << " calls of " << seen["rewritten"].size() << " methods in " << seconds
              << " s\n";
    EXPECT_EQ(seen["left"].size(), 0U);
    for (const Fields& complaint : seen["complaint"]) {
        EXPECT_THAT(complaint.at(1),
                    ::testing::StartsWith("Failed to read list of excluded scopes from "));
    }
}

} // namespace
} // namespace corvane::testing
