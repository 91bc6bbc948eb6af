#include "tools/corvane/findings.h"

#include <gtest/gtest.h>

#include <boost/property_tree/xml_parser.hpp>

#include <algorithm>
#include <functional>
#include <set>
#include <sstream>

namespace corvane::tool {
namespace {

AgentConfig config_of(const std::string& text) {
    std::istringstream stream(text);
    AgentConfig config;
    boost::property_tree::read_xml(stream, config, boost::property_tree::xml_parser::no_comments);
    return config;
}

AgentConfig listing(const std::string& entries) {
    return config_of("<configuration><instrumentation><applications>" + entries +
                     "</applications></instrumentation></configuration>");
}

// A program of .NET 10 that is profiled, by variables that name files.
CheckFacts good_facts() {
    CheckFacts facts;
    for (const std::wstring family : {L"CORECLR_", L"COR_"}) {
        facts.variables[family + L"ENABLE_PROFILING"] = L"1";
        facts.variables[family + L"PROFILER"] = L"{5d3a9c71-0b6e-4f28-9a41-7c2e8b04d1f6}";
        facts.variables[family + L"PROFILER_PATH"] = L"C:\\C\\CorvaneProfiler.dll";
    }
    ProgramFacts program;
    program.name = "app.exe";
    program.file = {"C:\\app\\app.exe", true, true, Image{}, ""};
    program.file.image->machine = kMachineX64;
    program.file.image->is_app_host = true;
    program.process.executable_name = "app.exe";
    program.process.arguments = {L"app.exe"};
    program.runtime_config = read_runtime_config(
        R"({"runtimeOptions": {"framework": {"name": "Microsoft.NETCore.App", "version": "10.0.0"}}})");
    facts.program = program;
    facts.own_profiler = "C:\\C\\CorvaneProfiler.dll";
    facts.profiler = {"C:\\C\\CorvaneProfiler.dll", true, true, Image{}, "3.9.0"};
    facts.profiler.image->machine = kMachineX64;
    facts.profiler.image->exports = {"DllGetClassObject"};
    facts.home = "C:\\C";
    facts.config_exists = true;
    facts.config = listing(R"(<application name="app.exe" corvane="Enabled"/>)");
    facts.hooks = {{"C:\\C\\kite.managed.dll", true, true, {}, "3.9.0"}};
    return facts;
}

void unset(CheckFacts& facts, const std::wstring& name) {
    facts.variables.erase(name);
}

void use_registry(CheckFacts& facts) {
    unset(facts, L"CORECLR_PROFILER_PATH");
    unset(facts, L"COR_PROFILER_PATH");
}

void make_framework_program(CheckFacts& facts) {
    facts.program->file.image->is_managed = true;
    facts.program->file.image->is_app_host = false;
    facts.program->runtime_config.reset();
    facts.program->own_library = {"C:\\app\\kite.managed.dll", true, true, {}, "3.9.0"};
}

void make_worker(CheckFacts& facts) {
    facts.program->process.executable_name = "w3wp.exe";
    facts.program->process.app_type = "TYPE_IIS";
    facts.program->process.arguments = {L"w3wp.exe", L"-ap", L"One"};
    facts.program->file.image->is_app_host = false;
}

struct Case {
    const char* id;
    std::function<void(CheckFacts&)> change;
    const char* part; // of the text
};

const std::vector<Case> kCases = {
    {"program-missing", [](CheckFacts& f) { f.program->file.exists = false; },
     "no program app.exe"},
    {"program-missing",
     [](CheckFacts& f) {
         f.program->assembly = FileFacts{"C:\\app\\app.dll", false, false, {}, ""};
     },
     "no C:\\app\\app.dll"},
    {"program-missing",
     [](CheckFacts& f) {
         f.program->file.exists = false;
         f.program->assembly = FileFacts{"C:\\app\\app.dll", true, true, {}, ""};
     },
     "no dotnet.exe to run app.exe"},
    {"program-no-image", [](CheckFacts& f) { f.program->file.image.reset(); }, "perhaps a script"},
    {"program-architecture", [](CheckFacts& f) { f.program->file.image->runs_as_32_bit = true; },
     "32-bit program"},
    {"program-architecture", [](CheckFacts& f) { f.program->file.image->machine = kMachineArm64; },
     "another processor"},
    {"program-native-aot",
     [](CheckFacts& f) {
         f.program->file.image->is_app_host = false;
         f.program->file.image->is_native_aot = true;
     },
     "ahead of time"},
    {"program-not-managed", [](CheckFacts& f) { f.program->file.image->is_app_host = false; },
     "not a .NET program"},
    {"runtime-too-old",
     [](CheckFacts& f) {
         f.program->runtime_config =
             read_runtime_config(R"({"runtimeOptions": {"framework": {"version": "6.0.36"}}})");
     },
     "runs on .NET 6.0.36"},
    {"runtime-too-old",
     [](CheckFacts& f) {
         f.program->runtime_config = read_runtime_config(
             R"({"runtimeOptions": {"rollForward": "LatestMajor", "includedFrameworks": [{"version": "7.0.1"}]}})");
         f.variables[L"DOTNET_ROLL_FORWARD"] = L"Minor";
     },
     "runs on .NET 7.0.1"},
    {"runtime-too-old", // the build beside it is not the one that is loaded
     [](CheckFacts& f) {
         f.program->runtime_config =
             read_runtime_config(R"({"runtimeOptions": {"framework": {"version": "6.0.36"}}})");
         f.program->own_library = {"C:\\app\\kite.managed.dll", true, true, {}, "3.9.0", true};
     },
     "runs on .NET 6.0.36"},
    {"hooks-off",
     [](CheckFacts& f) {
         f.program->runtime_config = read_runtime_config(
             R"({"runtimeOptions": {"configProperties": {"System.StartupHookProvider.IsSupported": false}}})");
     },
     "start-up hooks switched off"},
    {"diagnostics-off", [](CheckFacts& f) { f.variables[L"DOTNET_EnableDiagnostics"] = L"0"; },
     "DOTNET_EnableDiagnostics=0"},
    {"diagnostics-off",
     [](CheckFacts& f) { f.variables[L"COMPlus_EnableDiagnostics_Profiler"] = L"0"; },
     "COMPlus_EnableDiagnostics_Profiler=0"},
    {"variables-unset",
     [](CheckFacts& f) {
         unset(f, L"CORECLR_ENABLE_PROFILING");
         unset(f, L"COR_ENABLE_PROFILING");
     },
     "CORECLR_ENABLE_PROFILING is not 1"},
    {"variables-one-family", [](CheckFacts& f) { unset(f, L"CORECLR_ENABLE_PROFILING"); },
     "only the variables with COR_"},
    {"variables-one-family",
     [](CheckFacts& f) {
         make_framework_program(f);
         unset(f, L"COR_ENABLE_PROFILING");
     },
     "only the variables with CORECLR_"},
    {"variables-contradictory", [](CheckFacts& f) { unset(f, L"CORECLR_PROFILER"); },
     "CORECLR_PROFILER is not set"},
    {"variables-two-paths",
     [](CheckFacts& f) { f.variables[L"CORECLR_PROFILER_PATH_64"] = L"C:\\other.dll"; },
     "different files"},
    {"another-profiler", [](CheckFacts& f) { f.variables[L"CORECLR_PROFILER"] = L"{0}"; },
     "another profiler, {0}"},
    {"registration-absent", use_registry, "not registered"},
    {"registration-stale",
     [](CheckFacts& f) {
         use_registry(f);
         f.registered = "C:\\gone.dll";
         f.profiler = {"C:\\gone.dll", false, false, {}, ""};
     },
     "C:\\gone.dll"},
    {"registration-another", [](CheckFacts& f) { f.registered = "C:\\old\\CorvaneProfiler.dll"; },
     "C:\\old\\CorvaneProfiler.dll"},
    {"profiler-missing", [](CheckFacts& f) { f.profiler.exists = false; }, "no such file"},
    {"profiler-missing", [](CheckFacts& f) { f.profiler.is_full = false; }, "is no full path"},
    {"profiler-unreadable", [](CheckFacts& f) { f.profiler.is_readable = false; },
     "cannot be read"},
    {"profiler-architecture", [](CheckFacts& f) { f.profiler.image->machine = kMachineX86; },
     "no DLL for 64-bit"},
    {"profiler-architecture", [](CheckFacts& f) { f.profiler.image.reset(); }, "no DLL for 64-bit"},
    {"profiler-exports", [](CheckFacts& f) { f.profiler.image->exports.clear(); },
     "DllGetClassObject"},
    {"home-unset", [](CheckFacts& f) { f.home = ""; }, "CORVANE_HOME_APM_DOTNET is not set"},
    {"home-characters", [](CheckFacts& f) { f.home.reset(); }, "code page"},
    {"config-missing",
     [](CheckFacts& f) {
         f.config_exists = false;
         f.config.reset();
     },
     "no agent.config in C:\\C"},
    {"config-missing", [](CheckFacts& f) { f.is_home_full = false; }, "is no full path"},
    {"config-unreadable", [](CheckFacts& f) { f.config.reset(); }, "no XML"},
    {"config-section", [](CheckFacts& f) { f.config = config_of("<configuration/>"); },
     "no element instrumentation"},
    {"config-near-miss",
     [](CheckFacts& f) {
         f.config = config_of(
             "<configuration><instrumentation><Applications/></instrumentation></configuration>");
     },
     "no element applications, but one called Applications"},
    {"config-entry",
     [](CheckFacts& f) { f.config = listing(R"(<application name="other.exe"/>)"); },
     "does not list app.exe"},
    {"config-near-miss",
     [](CheckFacts& f) { f.config = listing(R"(<application name="ap.exe"/>)"); },
     "does not list app.exe, but \"ap.exe\""},
    {"config-disabled",
     [](CheckFacts& f) {
         f.config = listing(R"(<application name="APP.exe" corvane="Disabled"/>)");
     },
     "corvane=\"Disabled\" for app.exe"},
    {"config-disabled",
     [](CheckFacts& f) {
         make_worker(f);
         f.config = config_of(
             "<configuration><instrumentation><applicationPools><applicationPool name='One' "
             "corvane='Disabled'/></applicationPools></instrumentation></configuration>");
     },
     "disables app.exe"},
    {"config-disabled",
     [](CheckFacts& f) {
         make_worker(f);
         f.config = config_of(
             "<configuration><appSettings><add key='Corvane' value='Disabled'/></appSettings>"
             "<instrumentation><applicationPools/></instrumentation></configuration>");
     },
     "disables app.exe"},
    {"config-value",
     [](CheckFacts& f) {
         f.config = listing(R"(<application name="app.exe" corvane="disabled"/>)");
     },
     "corvane=\"disabled\" counts as enabled"},
    {"library-unnamed", [](CheckFacts& f) { f.hooks.clear(); }, "does not name kite.managed.dll"},
    {"library-missing", [](CheckFacts& f) { f.hooks[0].exists = false; }, "no file's full path"},
    {"library-missing", [](CheckFacts& f) { f.hooks[0].is_full = false; }, "no file's full path"},
    {"library-version", [](CheckFacts& f) { f.hooks[0].version = "3.8.1"; },
     "kite.managed.dll\" has the version 3.8.1, and \"C:\\C\\CorvaneProfiler.dll\" the version "
     "3.9.0"},
    {"library-version", [](CheckFacts& f) { f.profiler.version = "4.0.0"; },
     "has the version 3.9.0, and \"C:\\C\\CorvaneProfiler.dll\" the version 4.0.0"},
    {"library-version",
     [](CheckFacts& f) {
         f.hooks.clear();
         f.program->own_library = {"C:\\app\\kite.managed.dll", true, true, {}, ""};
     },
     "\"C:\\app\\kite.managed.dll\" has no version, and"},
    {"library-version",
     [](CheckFacts& f) {
         make_framework_program(f);
         f.program->own_library.version = "3.8.1";
     },
     "\"C:\\app\\kite.managed.dll\" has the version 3.8.1"},
    {"library-version", // nobody knows which ones these are
     [](CheckFacts& f) { f.profiler.version = f.hooks[0].version = ""; },
     "has no version, and \"C:\\C\\CorvaneProfiler.dll\" no version"},
    {"library-in-bundle",
     [](CheckFacts& f) {
         f.program->file.image->bundle = Bundle{{"app.dll", "kite.managed.dll"}, ""};
     },
     "carries a kite.managed.dll"},
    {"library-not-beside",
     [](CheckFacts& f) {
         make_framework_program(f);
         f.program->own_library.exists = false;
     },
     "not beside C:\\app\\app.exe"},
    {"log-unread", [](CheckFacts& f) { f.is_log_read = false; }, "nobody reads"},
};

TEST(Findings, AreNoneForAProgramThatIsProfiled) {
    EXPECT_TRUE(find_problems(good_facts()).empty());
    const std::vector<std::function<void(CheckFacts&)>> harmless = {
        make_framework_program,
        make_worker,
        [](CheckFacts& f) { f.program.reset(); },
        [](CheckFacts& f) { // of any kind, with children that are profiled
            f.program->file.image->is_app_host = false;
            f.starts_others = true;
        },
        [](CheckFacts& f) { // registered
            use_registry(f);
            f.registered = f.own_profiler;
        },
        [](CheckFacts& f) { f.config = listing(R"(<application name="*"/>)"); },
        [](CheckFacts& f) { f.program->runtime_config = read_runtime_config("no JSON"); },
        [](CheckFacts& f) { // the build that runs there
            f.program->runtime_config =
                read_runtime_config(R"({"runtimeOptions": {"framework": {"version": "6.0.36"}}})");
            f.hooks[0].is_for_standard = true;
        },
        [](CheckFacts& f) { // likewise, beside the program
            f.program->runtime_config =
                read_runtime_config(R"({"runtimeOptions": {"framework": {"version": "6.0.36"}}})");
            f.hooks.clear();
            f.program->own_library = {"C:\\app\\kite.managed.dll", true, true, {}, "3.9.0", true};
        },
        [](CheckFacts& f) { // both of one release, and this tool of whichever
            f.profiler.version = f.hooks[0].version = "4.0.0";
        },
        [](CheckFacts& f) { // whose runtime reads the other family
            make_worker(f);
            unset(f, L"CORECLR_ENABLE_PROFILING");
        },
        [](CheckFacts& f) {
            f.program->runtime_config = read_runtime_config(
                R"({"runtimeOptions": {"rollForward": "LatestMajor", "framework": {"version": "6.0.0"}}})");
        },
        [](CheckFacts& f) { // its own copy serves
            f.hooks.clear();
            f.program->own_library = {"C:\\app\\kite.managed.dll", true, true, {}, "3.9.0"};
        },
        [](CheckFacts& f) {
            make_worker(f);
            f.home = "";
            f.config_exists = false;
            f.config.reset();
        },
    };
    for (std::size_t i = 0; i < harmless.size(); ++i) {
        CheckFacts facts = good_facts();
        harmless[i](facts);
        for (const Finding& finding : find_problems(facts)) {
            ADD_FAILURE() << i << ": " << finding.text;
        }
    }
}

TEST(Findings, AreFoundOneByOne) {
    for (const Case& wrong : kCases) {
        CheckFacts facts = good_facts();
        wrong.change(facts);
        const std::vector<Finding> findings = find_problems(facts);
        ASSERT_EQ(findings.size(), 1U) << wrong.id << ", " << wrong.part;
        EXPECT_STREQ(findings[0].kind->id, wrong.id);
        EXPECT_NE(findings[0].text.find(wrong.part), std::string::npos) << findings[0].text;
        EXPECT_FALSE(findings[0].cure.empty());
        EXPECT_EQ(first_reason(findings) != nullptr, findings[0].kind->is_reason);
    }
}

TEST(Findings, NameInTheCureWhatIsAlmostRight) {
    struct Near {
        const char* id;
        std::function<void(CheckFacts&)> change;
        const char* cure;
    };
    const auto unlisted = [](CheckFacts& f, const std::string& pool) {
        make_worker(f);
        f.config = config_of(
            "<configuration><appSettings><add key='Corvane' value='Disabled'/></appSettings>"
            "<instrumentation><applicationPools><applicationPool name='" +
            pool + "'/></applicationPools></instrumentation></configuration>");
        f.program->process.arguments = {L"w3wp.exe", L"-ap", L"Shop", L"-ap", L"Orders"};
    };
    const std::vector<Near> near = {
        {"home-unset",
         [](CheckFacts& f) {
             f.home = "";
             f.variables[L"CORVANE_HOME_APM_DOTNTE"] = L"C:\\C";
         },
         "write CORVANE_HOME_APM_DOTNTE as CORVANE_HOME_APM_DOTNET"},
        {"home-unset",
         [](CheckFacts& f) {
             f.home = "";
             f.variables[L"CORVANE_LOG_FILE"] = L"C:\\log";
         },
         "set it to the folder of agent.config"},
        {"config-missing",
         [](CheckFacts& f) {
             f.config_exists = false;
             f.home_files = {"CorvaneProfiler.dll", "agent.config.txt"};
         },
         "rename agent.config.txt, which is there, to agent.config"},
        {"config-missing",
         [](CheckFacts& f) {
             f.config_exists = false;
             f.home_files = {"corvane.exe"};
         },
         "write one, or correct CORVANE_HOME_APM_DOTNET"},
        {"config-disabled", [&](CheckFacts& f) { unlisted(f, "Order"); },
         "write the pool's name, \"Orders\", for the entry's, \"Order\""},
        {"config-disabled", [&](CheckFacts& f) { unlisted(f, "Shop"); },
         "list the pool with corvane=\"Enabled\", for the setting Corvane is Disabled"},
    };
    for (const Near& wrong : near) {
        CheckFacts facts = good_facts();
        wrong.change(facts);
        const Findings findings = find_problems(facts);
        ASSERT_EQ(findings.size(), 1U) << wrong.cure;
        EXPECT_STREQ(findings[0].kind->id, wrong.id);
        EXPECT_EQ(findings[0].cure, wrong.cure);
    }
}

// The others are made where the machine is asked.
TEST(Findings, AreAllProvoked) {
    std::set<std::string> provoked = {"service-missing", "pool-missing", "registry-unreadable",
                                      "pools-unreadable"};
    for (const Case& wrong : kCases) {
        provoked.insert(wrong.id);
    }
    std::set<std::string> all;
    for (const FindingKind& kind : finding_kinds()) {
        all.insert(kind.id);
    }
    EXPECT_EQ(provoked, all);
    EXPECT_STREQ(missing_on_machine(true, "x").kind->id, "service-missing");
    EXPECT_STREQ(missing_on_machine(false, "x").kind->id, "pool-missing");
    EXPECT_STREQ(unreadable_registry("x", "y").kind->id, "registry-unreadable");
    EXPECT_STREQ(unreadable_pools("x", "y").kind->id, "pools-unreadable");
}

TEST(NamedProfiler, IsThatOfTheFamilyThatTheProgramReads) {
    CheckFacts facts = good_facts();
    facts.variables[L"COR_PROFILER_PATH"] = L"C:\\framework.dll";
    EXPECT_EQ(named_profiler(facts), L"C:\\C\\CorvaneProfiler.dll");
    facts.variables[L"CORECLR_PROFILER_PATH_64"] = L"C:\\64.dll";
    EXPECT_EQ(named_profiler(facts), L"C:\\64.dll");
    make_framework_program(facts);
    EXPECT_EQ(named_profiler(facts), L"C:\\framework.dll");
    unset(facts, L"COR_PROFILER_PATH");
    EXPECT_EQ(named_profiler(facts), L"");
}

} // namespace
} // namespace corvane::tool
