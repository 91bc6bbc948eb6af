// The decision to profile a process, taken inside real processes: by executable name, or for an IIS
// worker (the program under the name of one) by application pool.
#include "tests/support/runtime_test.h"

namespace corvane::testing {
namespace {

constexpr wchar_t kNoConfig[] =
    L"CClrProfiler::LoadAgentConfig(): Could not find agent.config file";
constexpr wchar_t kGateHasNoConfig[] = L"CClrProfiler::ShouldTrace(): could not load agent.config.";
constexpr wchar_t kSwitchHasNoConfig[] = L"CClrProfiler::CheckKey(): could not load agent config.";

struct Process {
    const wchar_t* executable;
    const wchar_t* app_type; // null: not set
    std::vector<std::wstring> arguments;
};

struct GateRow : NamedRow {
    Process process;
    const char* config; // null: there is no file
    bool traced;
    Lines messages = {};        // of the gate
    Lines switch_messages = {}; // of the switches, which are asked for behind it
};

#define APPLICATIONS(entries)                                                                      \
    "<configuration><instrumentation><applications>" entries                                       \
    "</applications></instrumentation></configuration>"
#define POOLS(settings, entries)                                                                   \
    "<?xml version='1.0' encoding='utf-8'?><configuration><appSettings>" settings                  \
    "</appSettings><instrumentation><applicationPools>" entries                                    \
    "</applicationPools></instrumentation></configuration>"
#define POOLS_OFF "<add key='Corvane' value='Disabled'/>"

const std::wstring kNoApplications =
    L"CClrProfiler::ShouldTrace(): Could not find configuration.applications.application elements.";
const std::wstring kNamelessApplication =
    L"CClrProfiler::ShouldTrace(): Error configuration.applications.application is missing name "
    L"attribute.";
const std::wstring kNoPools =
    L"CClrProfiler::ShouldTrace(): Could not find configuration.instrumentation.applicationPools "
    L"elements.";
const std::wstring kNamelessPool =
    L"CClrProfiler::ShouldTrace(): Error "
    L"configuration.instrumentation.applicationPools.applicationPool is missing name attribute.";
const std::wstring kBrokenPool =
    L"CClrProfiler::ShouldTrace(): Could not find "
    L"configuration.instrumentation.applicationPools.applicationPool elements.";

// Five switches are asked for, each with a load of the file of its own.
const Lines kSwitchesWithoutConfig = {kNoConfig, kSwitchHasNoConfig, kNoConfig, kSwitchHasNoConfig,
                                      kNoConfig, kSwitchHasNoConfig, kNoConfig, kSwitchHasNoConfig,
                                      kNoConfig, kSwitchHasNoConfig};

const std::vector<std::wstring> kPoolA = {L"-ap", L"Pool A"};
const Process kProgram = {L"program.exe", nullptr, {}};
const Process kWorker = {L"w3wp.exe", L"TYPE_IIS", kPoolA};

const GateRow kExecutableRows[] = {
    {"NotListed", kProgram, APPLICATIONS("<application name='other.exe' corvane='Enabled'/>"),
     false},
    {"ListedOnlyInPart", kProgram, APPLICATIONS("<application name='program' corvane='Enabled'/>"),
     false},
    {"Disabled", kProgram, APPLICATIONS("<application name='program.exe' corvane='Disabled'/>"),
     false},
    {"DisabledInLowerCase", kProgram,
     APPLICATIONS("<application name='program.exe' corvane='disabled'/>"), true},
    {"OtherValue", kProgram, APPLICATIONS("<application name='program.exe' corvane='perhaps'/>"),
     true},
    {"NoValue", kProgram, APPLICATIONS("<application name='program.exe'/>"), true},
    {"ListedInOtherCase", kProgram, APPLICATIONS("<application name='PROGRAM.Exe'/>"), true},
    {"NamedInOtherCase",
     {L"PROGRAM.EXE", nullptr, {}},
     APPLICATIONS("<application name='program.exe'/>"),
     true},
    {"ListedTwiceFirstDisabled", kProgram,
     APPLICATIONS("<application name='program.exe' corvane='Disabled'/>"
                  "<application name='program.exe' corvane='Enabled'/>"),
     false},
    {"ListedTwiceFirstEnabled", kProgram,
     APPLICATIONS("<application name='program.exe' corvane='Enabled'/>"
                  "<application name='program.exe' corvane='Disabled'/>"),
     true},
    {"BehindANamelessEntry",
     kProgram,
     APPLICATIONS("<application corvane='Disabled'/><application name='program.exe'/>"),
     true,
     {kNamelessApplication}},
    {"NoSection", kProgram, "<configuration/>", false, {kNoApplications}},
    {"NoFile", kProgram, nullptr, false, {kNoConfig, kGateHasNoConfig}},
    // Not a worker: the name and the type must both say so.
    {"TypeIisOnly", {L"program.exe", L"TYPE_IIS", kPoolA}, POOLS("", ""), false, {kNoApplications}},
    {"WorkerNameOnly", {L"w3wp.exe", nullptr, kPoolA}, POOLS("", ""), false, {kNoApplications}},
    {"WorkerWithTypeInLowerCase",
     {L"w3wp.exe", L"type_iis", kPoolA},
     POOLS("", ""),
     false,
     {kNoApplications}},
    {"WorkerWithLongerType",
     {L"w3wp.exe", L"TYPE_IIS_", kPoolA},
     APPLICATIONS("<application name='W3WP.exe'/>"),
     true},
};

const GateRow kWorkerRows[] = {
    {"Disabled", kWorker, POOLS("", "<applicationPool name='Pool A' corvane='Disabled'/>"), false},
    {"DisabledUnderANameInCapitals",
     {L"W3WP.EXE", L"TYPE_IIS", kPoolA},
     POOLS("", "<applicationPool name='Pool A' corvane='Disabled'/>"),
     false},
    {"DisabledPoolInOtherCase", kWorker,
     POOLS("", "<applicationPool name='pOOL a' corvane='Disabled'/>"), false},
    {"DisabledInLowerCase", kWorker,
     POOLS(POOLS_OFF, "<applicationPool name='Pool A' corvane='disabled'/>"), true},
    {"Enabled", kWorker, POOLS(POOLS_OFF, "<applicationPool name='Pool A' corvane='Enabled'/>"),
     true},
    {"NoValue", kWorker, POOLS(POOLS_OFF, "<applicationPool name='Pool A'/>"), true},
    {"FirstOfTwoEntries", kWorker,
     POOLS("", "<applicationPool name='Pool A' corvane='Disabled'/>"
               "<applicationPool name='Pool A' corvane='Enabled'/>"),
     false},
    {"ElementOfAnyName", kWorker, POOLS("", "<pool name='Pool A' corvane='Disabled'/>"), false},
    {"BehindANamelessEntry",
     kWorker,
     POOLS("", "<applicationPool corvane='Enabled'/>"
               "<applicationPool name='Pool A' corvane='Disabled'/>"),
     false,
     {kNamelessPool}},
    {"LaterArgumentOverrides",
     {L"w3wp.exe", L"TYPE_IIS", {L"-ap", L"Pool A", L"-ap", L"Pool B"}},
     POOLS("", "<applicationPool name='Pool A' corvane='Disabled'/>"
               "<applicationPool name='Pool B' corvane='Enabled'/>"),
     true},
    {"ArgumentLast",
     {L"w3wp.exe", L"TYPE_IIS", {L"-ap", L"Pool A", L"-ap"}},
     POOLS(POOLS_OFF, "<applicationPool name='Pool A' corvane='Disabled'/>"),
     true},
    {"ArgumentInCapitals",
     {L"w3wp.exe", L"TYPE_IIS", {L"-AP", L"Pool A"}},
     POOLS("", "<applicationPool name='Pool A' corvane='Disabled'/>"),
     true},
    {"ArgumentBehindOthers",
     {L"w3wp.exe", L"TYPE_IIS", {L"0", L"-v", L"v4.0", L"-ap", L"Pool A"}},
     POOLS("", "<applicationPool name='Pool A' corvane='Disabled'/>"),
     false},
    {"NoArgumentIsTheEmptyPool",
     {L"w3wp.exe", L"TYPE_IIS", {}},
     POOLS("", "<applicationPool name='' corvane='Disabled'/>"),
     false},
    {"NoArgumentAndNoEmptyPool",
     {L"w3wp.exe", L"TYPE_IIS", {}},
     POOLS("", "<applicationPool name='Pool A' corvane='Disabled'/>"),
     true},
    {"PoolOutsideAscii",
     {L"w3wp.exe", L"TYPE_IIS", {L"-ap", L"B\u00fccher \u0416\u4e66"}},
     POOLS("", "<applicationPool name='B\xc3\xbc"
               "cher \xd0\x96\xe4\xb9\xa6' corvane='Disabled'/>"),
     false},
    {"PoolOutsideAsciiInOtherCase",
     {L"w3wp.exe", L"TYPE_IIS", {L"-ap", L"B\u00dcCHER \u0436"}},
     POOLS("", "<applicationPool name='b\xc3\xbc"
               "cher \xd0\x96' corvane='Disabled'/>"),
     false},
    {"PoolThatIsNotUtf8",
     kWorker,
     POOLS(POOLS_OFF, "<applicationPool name='B\xfc"
                      "cher' corvane='Disabled'/>"
                      "<applicationPool name='Pool A' corvane='Disabled'/>"),
     true,
     {kBrokenPool}},
    {"NotListed", kWorker, POOLS("", ""), true},
    {"NotListedAndOff", kWorker,
     POOLS(POOLS_OFF, "<applicationPool name='Pool B' corvane='Enabled'/>"), false},
    {"NotListedAndOffInLowerCase", kWorker, POOLS("<add key='Corvane' value='disabled'/>", ""),
     true},
    {"ApplicationsDoNotCount", kWorker,
     "<configuration><instrumentation><applicationPools/><applications>"
     "<application name='w3wp.exe' corvane='Disabled' inlining='Disabled'/>"
     "</applications></instrumentation></configuration>",
     true},
    {"NoSection",
     kWorker,
     "<configuration><appSettings>" POOLS_OFF "</appSettings></configuration>",
     true,
     {kNoPools}},
    {"NoFile", kWorker, nullptr, true, {kNoConfig, kGateHasNoConfig}, kSwitchesWithoutConfig},
    {"MalformedFile",
     kWorker,
     "<configuration>",
     true,
     {kNoConfig, kGateHasNoConfig},
     kSwitchesWithoutConfig},
};

class ProcessGate : public EachRuntimeRowTest<GateRow> {};
INSTANTIATE_TEST_SUITE_P(Executable, ProcessGate,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kExecutableRows)),
                         row_name<GateRow>);
INSTANTIATE_TEST_SUITE_P(IisWorker, ProcessGate,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kWorkerRows)),
                         row_name<GateRow>);

TEST_P(ProcessGate, Decides) {
    if (row().config != nullptr) {
        configure(row().config);
    }
    const Process& process = row().process;
    Launch launch = {.executable = process.executable, .arguments = process.arguments};
    if (process.app_type != nullptr) {
        launch.environment[L"APP_TYPE"] = process.app_type;
    }
    const Watched run = watch(launch);
    if (row().traced) {
        expect_traced(run, traced_log(row().messages, row().switch_messages));
    } else {
        expect_refused(run, refused_log(row().messages));
    }
}

// A program may run in a folder that others can write to.
class HomeVariable : public EachRuntimeTest {
protected:
    static constexpr char kListed[] = APPLICATIONS("<application name='program.exe'/>");
};
INSTANTIATE_TEST_SUITE_P(Runtimes, HomeVariable, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(HomeVariable, MayBeRelativeToTheCurrentFolder) {
    write_file(folder() / "agent.config", kListed);
    home_variable = L".."; // the program runs in a folder below
    expect_traced(watch(), traced_log());
}

TEST_P(HomeVariable, IsNotSetWhenItIsEmpty) {
    home_variable = std::nullopt;
    expect_refused(watch(), refused_log({kGateHasNoConfig}));
    write_file(folder() / "program" / "agent.config", kListed);
    home_variable = L"";
    expect_refused(watch(), refused_log({kGateHasNoConfig}));
    home_variable = L".";
    expect_traced(watch(), traced_log());
}

} // namespace
} // namespace corvane::testing
