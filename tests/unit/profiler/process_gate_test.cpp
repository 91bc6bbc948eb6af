#include "profiler/process_gate.h"

#include "tests/support/log_lines.h"

#include <gtest/gtest.h>

#include <boost/property_tree/xml_parser.hpp>

#include <sstream>
#include <stdexcept>
#include <utility>

namespace corvane {

// Names the verdicts in failure messages.
void PrintTo(GateVerdict verdict, std::ostream* stream) {
    *stream << (verdict == GateVerdict::kTrace    ? "trace"
                : verdict == GateVerdict::kRefuse ? "refuse"
                                                  : "ask the pool default");
}

namespace {

using testing::LogLines;
using Arguments = std::vector<std::wstring>;

constexpr const wchar_t* kNotLoaded =
    L"1 CClrProfiler::ShouldTrace(): could not load agent.config.\n";
constexpr const wchar_t* kNoPools = L"1 CClrProfiler::ShouldTrace(): Could not find "
                                    L"configuration.instrumentation.applicationPools elements.\n";
constexpr const wchar_t* kBadPools =
    L"1 CClrProfiler::ShouldTrace(): Could not find "
    L"configuration.instrumentation.applicationPools.applicationPool elements.\n";
constexpr const wchar_t* kPoolWithoutName =
    L"1 CClrProfiler::ShouldTrace(): Error "
    L"configuration.instrumentation.applicationPools.applicationPool is missing name attribute.\n";
constexpr const wchar_t* kNoApplications =
    L"1 CClrProfiler::ShouldTrace(): Could not find configuration.applications.application "
    L"elements.\n";
constexpr const wchar_t* kApplicationWithoutName =
    L"1 CClrProfiler::ShouldTrace(): Error configuration.applications.application is missing name "
    L"attribute.\n";

AgentConfig config_with(const std::string& instrumentation) {
    std::istringstream stream("<configuration><instrumentation>" + instrumentation +
                              "</instrumentation></configuration>");
    AgentConfig config;
    boost::property_tree::read_xml(stream, config, boost::property_tree::xml_parser::no_comments);
    return config;
}

AgentConfig pools(const std::string& entries) {
    return config_with("<applicationPools>" + entries + "</applicationPools>");
}

AgentConfig applications(const std::string& entries) {
    return config_with("<applications>" + entries + "</applications>");
}

ProcessFacts worker(std::optional<Arguments> arguments) {
    return {"w3wp.exe", "TYPE_IIS", std::move(arguments)};
}

ProcessFacts worker_of(const std::wstring& pool) {
    return worker(Arguments{L"w3wp.exe", L"-ap", pool, L"-v", L"v4.0"});
}

ProcessFacts executable(const std::string& name) {
    return {name, std::nullopt, Arguments{}};
}

void expect_decision(const ProcessFacts& process, const AgentConfig* config, GateVerdict verdict,
                     const std::wstring& messages = L"", bool disable_inlining = false) {
    LogLines log;
    const GateDecision decision = decide_trace(process, config, log.sink());
    EXPECT_EQ(decision.verdict, verdict);
    EXPECT_EQ(decision.disable_inlining, disable_inlining);
    EXPECT_EQ(log.text(), messages);
}

void expect_decision(const ProcessFacts& process, const AgentConfig& config, GateVerdict verdict,
                     const std::wstring& messages = L"", bool disable_inlining = false) {
    expect_decision(process, &config, verdict, messages, disable_inlining);
}

TEST(IsIisWorker, NeedsTheTypeExactlyAndTheNameInAnyCase) {
    EXPECT_TRUE(is_iis_worker({"w3wp.exe", "TYPE_IIS", {}}));
    EXPECT_TRUE(is_iis_worker({"W3WP.EXE", "TYPE_IIS", {}}));
    EXPECT_FALSE(is_iis_worker({"w3wp.exe", "type_iis", {}}));
    EXPECT_FALSE(is_iis_worker({"w3wp.exe", "TYPE_IIS ", {}}));
    EXPECT_FALSE(is_iis_worker({"w3wp.exe", "", {}}));
    EXPECT_FALSE(is_iis_worker({"w3wp.exe", std::nullopt, {}}));
    EXPECT_FALSE(is_iis_worker({"w3wp", "TYPE_IIS", {}}));
    EXPECT_FALSE(is_iis_worker({"MyService.exe", "TYPE_IIS", {}}));
}

TEST(GateForWorkers, TracesWithoutConfiguration) {
    expect_decision(worker_of(L"Pool A"), nullptr, GateVerdict::kTrace, kNotLoaded);
}

TEST(GateForWorkers, TracesWhenTheCommandLineGivesNoPool) {
    const AgentConfig config = pools(R"(<applicationPool name="" corvane="Disabled"/>)");
    expect_decision(worker(std::nullopt), config, GateVerdict::kTrace);
    expect_decision(worker(Arguments{L"w3wp.exe", L"-ap"}), config, GateVerdict::kTrace);
    expect_decision(worker(Arguments{L"w3wp.exe", L"-ap", L"x", L"-ap"}), config,
                    GateVerdict::kTrace);
}

TEST(GateForWorkers, GoesByTheEntryOfThePool) {
    const AgentConfig config = pools(R"(<applicationPool name="PoolOne" corvane="Enabled"/>
                                        <applicationPool name="PoolTwo" corvane="Disabled"/>
                                        <applicationPool name="PoolThree" corvane="disabled"/>
                                        <applicationPool name="PoolFour"/>)");
    expect_decision(worker_of(L"PoolOne"), config, GateVerdict::kTrace);
    expect_decision(worker_of(L"PoolTwo"), config, GateVerdict::kRefuse);
    expect_decision(worker_of(L"PoolThree"), config, GateVerdict::kTrace);
    expect_decision(worker_of(L"PoolFour"), config, GateVerdict::kTrace);
    expect_decision(worker_of(L"PoolFive"), config, GateVerdict::kAskPoolDefault);
}

TEST(GateForWorkers, ComparesPoolNamesWithoutCase) {
    expect_decision(worker_of(L"Pool A"),
                    pools(R"(<applicationPool name="pool a" corvane="Disabled"/>)"),
                    GateVerdict::kRefuse);
    expect_decision(worker_of(L"Pool A "),
                    pools(R"(<applicationPool name="pool a" corvane="Disabled"/>)"),
                    GateVerdict::kAskPoolDefault);
}

TEST(GateForWorkers, ReadsPoolNamesAsUtf8) {
    // "Größe", with the letters beyond ASCII spelled out.
    const AgentConfig config = pools("<applicationPool name=\"Gr\xC3\xB6\xC3\x9F"
                                     "e\" corvane=\"Disabled\"/>");
    expect_decision(worker_of(L"Gr\u00F6\u00DF"
                              L"e"),
                    config, GateVerdict::kRefuse);
    expect_decision(worker_of(L"gr\u00F6\u00DFE"), config, GateVerdict::kRefuse);
    expect_decision(worker_of(L"Grosse"), config, GateVerdict::kAskPoolDefault);
}

#ifdef _WIN32 // the platform's table knows more letters than ASCII's
TEST(GateForWorkers, IgnoresCaseBeyondAscii) {
    expect_decision(worker_of(L"GR\u00D6\u00DF"
                              L"E"),
                    pools("<applicationPool name=\"Gr\xC3\xB6\xC3\x9F"
                          "e\" corvane=\"Disabled\"/>"),
                    GateVerdict::kRefuse);
}
#endif

TEST(GateForWorkers, LetsTheLastPoolArgumentCount) {
    const AgentConfig config = pools(R"(<applicationPool name="b" corvane="Disabled"/>)");
    expect_decision(worker(Arguments{L"w3wp.exe", L"-ap", L"a", L"-ap", L"b"}), config,
                    GateVerdict::kRefuse);
    expect_decision(worker(Arguments{L"w3wp.exe", L"-ap", L"b", L"-ap", L"a"}), config,
                    GateVerdict::kAskPoolDefault);
    expect_decision(worker(Arguments{L"w3wp.exe", L"-AP", L"b"}), config,
                    GateVerdict::kAskPoolDefault);
    expect_decision(worker(Arguments{L"-ap", L"b"}), config, GateVerdict::kRefuse);
    expect_decision(worker(Arguments{L"w3wp.exe", L"-ap", L"-ap", L"b"}), config,
                    GateVerdict::kRefuse);
}

TEST(GateForWorkers, TakesNoArgumentForThePoolWithTheEmptyName) {
    expect_decision(worker(Arguments{L"w3wp.exe"}),
                    pools(R"(<applicationPool name="" corvane="Disabled"/>)"),
                    GateVerdict::kRefuse);
}

TEST(GateForWorkers, LetsTheFirstMatchDecideWhateverTheElement) {
    expect_decision(worker_of(L"a"), pools(R"(<pool name="a" corvane="Disabled"/>
                                              <applicationPool name="a" corvane="Enabled"/>)"),
                    GateVerdict::kRefuse);
}

TEST(GateForWorkers, ReportsEntriesWithoutName) {
    expect_decision(worker_of(L"a"), pools(R"(<applicationPool corvane="Enabled"/><other/>
                                              <applicationPool name="a" corvane="Disabled"/>
                                              <applicationPool/>)"),
                    GateVerdict::kRefuse, std::wstring(kPoolWithoutName) + kPoolWithoutName);
}

TEST(GateForWorkers, TracesWithoutTheSection) {
    expect_decision(worker_of(L"a"), config_with(""), GateVerdict::kTrace, kNoPools);
    expect_decision(worker_of(L"a"), AgentConfig(), GateVerdict::kTrace, kNoPools);
    expect_decision(worker_of(L"a"), pools(""), GateVerdict::kAskPoolDefault);
}

TEST(GateForWorkers, TracesWhenANameIsNotUtf8) {
    expect_decision(worker_of(L"a"),
                    pools("<applicationPool name=\"\xFF\" corvane=\"Disabled\"/>"
                          "<applicationPool name=\"a\" corvane=\"Disabled\"/>"),
                    GateVerdict::kTrace, kBadPools);
}

TEST(GateForExecutables, RefusesWithoutConfiguration) {
    expect_decision(executable("MyService.exe"), nullptr, GateVerdict::kRefuse, kNotLoaded);
}

TEST(GateForExecutables, GoesByTheEntryOfTheExecutable) {
    const AgentConfig config = applications(R"(<application name="One.exe" corvane="Enabled"/>
                                               <application name="Two.exe" corvane="Disabled"/>
                                               <application name="Three.exe" corvane="disabled"/>
                                               <application name="Four.exe"/>)");
    expect_decision(executable("One.exe"), config, GateVerdict::kTrace);
    expect_decision(executable("Two.exe"), config, GateVerdict::kRefuse);
    expect_decision(executable("Three.exe"), config, GateVerdict::kTrace);
    expect_decision(executable("Four.exe"), config, GateVerdict::kTrace);
    expect_decision(executable("ONE.EXE"), config, GateVerdict::kTrace);
    expect_decision(executable("two.exe"), config, GateVerdict::kRefuse);
    expect_decision(executable("Five.exe"), config, GateVerdict::kRefuse);
    expect_decision(executable("One.ex"), config, GateVerdict::kRefuse);
    expect_decision(executable(""), config, GateVerdict::kRefuse);
}

TEST(GateForExecutables, SwitchesInliningOff) {
    const AgentConfig config =
        applications(R"(<application name="a" corvane="Enabled" inlining="Disabled"/>
                        <application name="b" inlining="disabled"/>
                        <application name="c" corvane="Disabled" inlining="Disabled"/>)");
    expect_decision(executable("a"), config, GateVerdict::kTrace, L"", true);
    expect_decision(executable("b"), config, GateVerdict::kTrace, L"", false);
    expect_decision(executable("c"), config, GateVerdict::kRefuse, L"", false);
}

TEST(GateForExecutables, LetsTheFirstEntryCount) {
    expect_decision(executable("a"), applications(R"(<application name="a" corvane="Disabled"/>
                                                     <application name="a" corvane="Enabled"/>)"),
                    GateVerdict::kRefuse);
    expect_decision(executable("a"), applications(R"(<application name="a"/>
                                                     <application name="a" corvane="Disabled"/>)"),
                    GateVerdict::kTrace);
}

TEST(GateForExecutables, LetsAStarStandForAll) {
    const AgentConfig config = applications(R"(<application name="a" corvane="Disabled"/>
                                               <application name="*" inlining="Disabled"/>
                                               <application name="b" corvane="Disabled"/>)");
    expect_decision(executable("a"), config, GateVerdict::kRefuse);
    expect_decision(executable("b"), config, GateVerdict::kTrace, L"", true);
    expect_decision(executable("another one"), config, GateVerdict::kTrace, L"", true);
    expect_decision(executable("a"), applications(R"(<application name="*.exe"/>)"),
                    GateVerdict::kRefuse);
}

TEST(GateForExecutables, ReportsEntriesWithoutName) {
    expect_decision(executable("a"), applications(R"(<application corvane="Disabled"/>
                                                     <application name="a"/>)"),
                    GateVerdict::kTrace, kApplicationWithoutName);
}

TEST(GateForExecutables, RefusesWithoutTheSection) {
    expect_decision(executable("a"), config_with(""), GateVerdict::kRefuse, kNoApplications);
    expect_decision(executable("a"), AgentConfig(), GateVerdict::kRefuse, kNoApplications);
    expect_decision(executable("a"), applications(""), GateVerdict::kRefuse);
}

TEST(GateForExecutables, RefusesWhenTheEntriesCannotBeRead) {
    const AgentConfig config = applications(R"(<application/><application name="a"/>)");
    std::wstring last;
    const LogSink log = [&last](int, const wchar_t* message) {
        if (std::exchange(last, message).empty()) {
            throw std::runtime_error("as if memory ran out");
        }
    };
    EXPECT_EQ(decide_trace(executable("a"), &config, log).verdict, GateVerdict::kRefuse);
    EXPECT_EQ(last, L"CClrProfiler::ShouldTrace(): Error CORVANE_HOME_APM_DOTNET and parsing "
                    L"configuration.applications.");
}

TEST(GateForExecutables, TakesAWorkerWithoutTheTypeForAnExecutable) {
    ProcessFacts process = worker_of(L"a");
    process.app_type = "type_iis";
    expect_decision(process, pools(R"(<applicationPool name="a"/>)"), GateVerdict::kRefuse,
                    kNoApplications);
    expect_decision(process, applications(R"(<application name="W3WP.exe"/>)"),
                    GateVerdict::kTrace);
}

} // namespace
} // namespace corvane
