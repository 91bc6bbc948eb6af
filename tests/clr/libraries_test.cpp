// Well-known libraries at work with all of their methods chosen. The program must not notice; what
// could not be instrumented must be for a reason that is known; and what was must be most of it.
#include "tests/support/call_tree.h"
#include "tests/support/observations.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iostream>
#include <map>
#include <regex>
#include <set>

namespace corvane::testing {
namespace {

struct Mode : NamedRow {
    Environment environment;
    const char* settings;  // of the program in agent.config
    const char* reasons;   // for which methods may be left as they are
    std::size_t rewritten; // at least
    std::size_t called;    // methods, at least
    bool all = true;       // calls are recorded
    const wchar_t* folder = L"libraries";
};

// Neither library has methods that strict IL cannot do. "Hot": optimised while it runs; the last
// two: compiled once and with all optimisations.
const Mode kModes[] = {
    {{"Default"},
     {{L"CORVANE_STRICT_IL", std::nullopt}},
     "",
     "it is an instance method of a value type, whose receiver is no object; "
     "CORVANE_STRICT_IL=1 boxes it|"
     "its module does not name System\\.\\w+, as which (its result|parameter \\d+) is boxed; "
     "CORVANE_STRICT_IL=1 lets it",
     2'400,
     2'200,
     false},
    {{"Strict"}, {{L"CORVANE_STRICT_IL", L"1"}}, "", "", 2'700, 2'400},
    {{"Hot"},
     {{L"CORVANE_STRICT_IL", L"1"},
      {L"DOTNET_TieredPGO", L"0"},
      {L"DOTNET_TC_CallCountThreshold", L"2"},
      {L"DOTNET_TC_CallCountingDelayMs", L"0"},
      {L"DOTNET_TC_BackgroundWorkerTimeoutMs", L"0"}},
     "",
     "",
     2'700,
     2'400},
    {{"Inlining"},
     {{L"CORVANE_STRICT_IL", L"1"}, {L"DOTNET_TieredCompilation", L"0"}},
     "",
     "",
     2'700,
     2'400},
    {{"Optimised"},
     {{L"CORVANE_STRICT_IL", L"1"}, {L"DOTNET_TieredCompilation", L"0"}},
     " inlining='Disabled'",
     "",
     2'700,
     2'400},
};

// Which methods were left as they are, and how many for which reason. Overloads count as one.
struct Refusals {
    std::set<std::string> methods;
    std::map<std::string, int> reasons;
};

// Every complaint must be a refusal, but for the one of each run without a list of excluded scopes.
Refusals read_refusals(const std::vector<Fields>& complaints) {
    const std::string middle = " : Left as it is: ";
    Refusals refusals;
    for (const Fields& fields : complaints) {
        const std::string& line = fields.at(1);
        const std::size_t at = line.find(middle);
        if (at != line.npos) {
            refusals.methods.insert(line.substr(0, at));
            ++refusals.reasons[line.substr(at + middle.size())];
        } else {
            EXPECT_THAT(line,
                        ::testing::StartsWith("Failed to read list of excluded scopes from "));
        }
    }
    return refusals;
}

using Counts = std::map<std::string, long long>;

// What the methods of the libraries counted themselves, overloads together.
Counts read_counts(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    Counts counts;
    long long count = 0;
    for (std::string name; stream >> count && stream.ignore() && std::getline(stream, name);) {
        counts[name.substr(0, name.find_last_not_of('\r') + 1)] += count;
    }
    return counts;
}

class Libraries : public EachRuntimeRowTest<Mode> {};
INSTANTIATE_TEST_SUITE_P(Modes, Libraries,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kModes)),
                         row_name<Mode>);

// Precompiled callers have the small methods of their library in their own code.
const Mode kReadyToRun = {{"ReadyToRun"}, {{L"CORVANE_STRICT_IL", L"1"}}, "", "", 2'700, 2'400,
                          true,           L"libraries_ReadyToRun"};
INSTANTIATE_TEST_SUITE_P(Published, Libraries,
                         ::testing::Combine(::testing::Values(10), ::testing::Values(kReadyToRun)),
                         row_name<Mode>);

TEST_P(Libraries, AreInstrumentedAndNotNoticed) {
    configure(std::string("<configuration><instrumentation><applications>"
                          "<application name='libraries.exe' corvane='Enabled'") +
              row().settings + "/></applications></instrumentation></configuration>");
    program = row().folder;
    const std::filesystem::path report = folder() / "report.txt";
    const std::filesystem::path tree = folder() / "calls.txt";

    Launch launch = {.executable = L"libraries.exe",
                     .environment = row().environment,
                     .witness = L"observer.dll",
                     .with_debugger = false,
                     .timeout = std::chrono::minutes(5),
                     .exit_code = 42};
    const std::filesystem::path counts = folder() / "counts.txt";
    launch.environment[L"LIBRARIES_COUNTS"] = counts.wstring();
    launch.environment[L"CORVANE_OBSERVER_READS_LOG"] = L"1";
    launch.environment[L"CORVANE_OBSERVER_REPORT"] = report.wstring();
    launch.environment[L"CORVANE_CALL_TREE"] = tree.wstring();
    launch.environment[L"CORVANE_VALUES"] = L"all";
    launch.environment[L"CORVANE_CALL_LIMIT"] = L"10000000";
    launch.environment[L"DOTNET_STARTUP_HOOKS"] = managed_library().wstring();
    watch(launch);

    Observations seen = read_observations(report);
    const Refusals refusals = read_refusals(seen["complaint"]);
    for (const auto& [reason, count] : refusals.reasons) {
        EXPECT_TRUE(std::regex_match(reason, std::regex(row().reasons))) << reason;
        std::cout << count << " left as they are: " << reason << '\n';
    }
    std::set<std::string> left;
    for (const Fields& fields : seen["left"]) {
        left.insert(fields.at(1));
    }
    EXPECT_EQ(left, refusals.methods);

    const CallTree calls = read_call_tree(tree);
    std::cout << seen["rewritten"].size() << " instrumented, " << calls.methods.size()
              << " of them called, " << calls.calls << " times\n";
    EXPECT_GT(seen["rewritten"].size(), row().rewritten);
    EXPECT_GT(calls.methods.size(), row().called);
    EXPECT_GT(calls.calls, 250'000);
    if (row().all) {
        Counts recorded = calls.methods;
        EXPECT_EQ(recorded.erase("Program.Main"), 1U);
        const Counts counted = read_counts(counts);
        EXPECT_GT(counted.size(), row().called);
        EXPECT_EQ(recorded, counted);
    }
    EXPECT_EQ(calls.threads, 1);
    EXPECT_EQ(calls.dropped, 0);
    EXPECT_EQ(calls.failures, 0);
}

} // namespace
} // namespace corvane::testing
