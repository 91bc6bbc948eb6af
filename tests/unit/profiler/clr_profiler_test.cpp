#include "profiler/clr_profiler.h"

#include "base/hresult_text.h"
#include "base/log_output.h"
#include "base/own_module.h"
#include "base/runtime_state.h"
#include "profiler/agent_config.h"
#include "profiler/com_object.h"
#include "rewrite/references/known_references.h"
#include "rewrite/rewrite_settings.h"
#include "rewrite/shape/loaded_modules.h"
#include "sampling/known_functions.h"
#include "sampling/thread_map.h"
#include "selection/excluded_scopes.h"
#include "selection/method_patterns.h"
#include "selection/target_methods.h"
#include "tests/support/agent_home.h"
#include "tests/support/allocations.h"
#include "tests/support/debug_output.h"
#include "tests/support/fake_method.h"
#include "tests/support/fake_runtime.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

namespace corvane {
namespace {

using testing::AgentHome;
using testing::DebugOutput;
using testing::FakeMethod;
using testing::FakeRuntime;
using testing::ScopedVariable;

constexpr HRESULT kCancelled = static_cast<HRESULT>(0x80131375);
constexpr const wchar_t* kInvoked = L"CClrProfiler::Initialize(): Invoked\n"
                                    L"CClrProfiler::ShouldTrace(): called.\n";
constexpr const wchar_t* kAfterShouldTrace = L"CClrProfiler::Initialize(): after should trace\n";

std::wstring exclusions_file() {
    return (std::filesystem::path(own_module_path()).parent_path() / "do_not_instrument.txt")
        .wstring();
}

std::wstring no_exclusions() {
    return L"Failed to read list of excluded scopes from " + exclusions_file() + L"\n";
}

// A configuration that lists this program, with attributes of its entry and appSettings entries.
std::string listing_this(const std::string& attributes = "", const std::string& settings = "") {
    const std::string name = std::filesystem::path(own_module_path()).filename().string();
    return "<configuration><appSettings>" + settings +
           "</appSettings><instrumentation><applications><application name=\"" + name + "\" " +
           attributes + "/></applications></instrumentation></configuration>";
}

std::string setting(const char* key, const char* value) {
    return std::string("<add key=\"") + key + "\" value=\"" + value + "\"/>";
}

std::vector<ModuleID> loaded_modules() {
    std::vector<ModuleID> modules;
    visit_loaded_modules([&](ModuleID module) {
        modules.push_back(module);
        return true;
    });
    return modules;
}

// One profiler object in its plain form, and the process-wide values put back when it goes.
class ProfilerTest : public ::testing::Test {
protected:
    ProfilerTest() : profiler(new ComObject<CClrProfiler>()) {}
    void TearDown() override {
        profiler = {};
        profilerInfo2.reset();
        profilerInfo3.reset();
        mscorlibModuleId = 0;
        managedLibraryLoaded = false;
        strict_il = false;
        excluded_scopes.clear();
        method_patterns = MethodPatterns();
        target_methods.clear();
    }

    FakeRuntime runtime;
    DebugOutput output;
    ComPtr<ComObject<CClrProfiler>> profiler;
};

class Initialize : public ProfilerTest {
protected:
    // Starts up under `config`, expects success, and returns the mask that was set.
    DWORD mask_for(const std::string& config) {
        const AgentHome home(config);
        EXPECT_EQ(profiler->Initialize(&runtime), S_OK);
        EXPECT_EQ(runtime.calls, std::vector<std::string>{"SetEventMask"});
        return runtime.event_mask;
    }
};

TEST_F(Initialize, WritesItsProgressAndSubscribes) {
    EXPECT_EQ(mask_for(listing_this()), 0x10020224U);
    EXPECT_EQ(output.text(), std::wstring(kInvoked) + kAfterShouldTrace + no_exclusions());
    EXPECT_TRUE(profilerInfo2);
    EXPECT_TRUE(profilerInfo3);
    ASSERT_EQ(excluded_scopes.size(), 1U);
    EXPECT_EQ(excluded_scopes[0].assembly, L"kite.managed");
    EXPECT_EQ(excluded_scopes[0].path, std::vector<std::wstring>{L"*"});
}

// The first line is in the file already.
TEST_F(Initialize, TakesTheLogsVariables) {
    const std::filesystem::path file =
        std::filesystem::temp_directory_path() /
        ("corvane start-up " + std::to_string(GetCurrentProcessId()) + ".log");
    const std::string name = (file.parent_path() / "corvane start-up {pid}.log").string();
    std::string text;
    {
        const ScopedVariable path("CORVANE_LOG_FILE", name);
        const ScopedVariable level("CORVANE_LOG_LEVEL", "1");
        const ScopedVariable limit("CORVANE_LOG_LIMIT_MB", "none");
        EXPECT_EQ(mask_for(listing_this()), 0x10020224U);
        end_log_file(false);
        std::ifstream stream(file);
        text.assign(std::istreambuf_iterator<char>(stream), {});
    }
    std::filesystem::remove(file);
    const std::wstring complaint =
        L"CORVANE_LOG_LIMIT_MB is \"none\", which is no number from 1 to 1024; 10 is used\n";
    EXPECT_EQ(output.text(),
              L"CClrProfiler::Initialize(): Invoked\n" + complaint + no_exclusions());
    EXPECT_EQ(std::ranges::count(text, '\n'), 3);
    EXPECT_NE(text.find(" CClrProfiler::Initialize(): Invoked\n"), text.npos);
    EXPECT_EQ(log_level(), 1);

    runtime.calls.clear();
    const std::size_t before = output.text().size();
    const ScopedVariable relative("CORVANE_LOG_FILE", "corvane.log");
    EXPECT_EQ(mask_for(listing_this()), 0x10020224U);
    EXPECT_EQ(log_level(), 3);
    EXPECT_EQ(output.text().substr(before),
              std::wstring(L"CClrProfiler::Initialize(): Invoked\nCORVANE_LOG_FILE is "
                           L"\"corvane.log\", which is no full path; no file is written\n") +
                  std::wstring(kInvoked).substr(std::wstring_view(kInvoked).find(L'\n') + 1) +
                  kAfterShouldTrace + no_exclusions());
    EXPECT_FALSE(std::filesystem::exists("corvane.log"));
}

// Only now may lines be left out that nobody reads.
TEST_F(Initialize, SendsItsLinesToNobodyInParticular) {
    const testing::DebuggerPresence debugger(false);
    EXPECT_EQ(mask_for(listing_this()), 0x10020224U);
    EXPECT_EQ(output.text(), std::wstring(kInvoked) + kAfterShouldTrace + no_exclusions());
    default_log.log(1, L"behind");
    EXPECT_EQ(output.text(), std::wstring(kInvoked) + kAfterShouldTrace + no_exclusions());
}

TEST_F(Initialize, RefusesAProcessThatIsNotListed) {
    const AgentHome home("<configuration><instrumentation><applications/></instrumentation>"
                         "</configuration>");
    EXPECT_EQ(profiler->Initialize(&runtime), kCancelled);
    EXPECT_EQ(output.text(), kInvoked);
    EXPECT_TRUE(runtime.calls.empty());
    EXPECT_EQ(runtime.references, 1U);
    EXPECT_TRUE(excluded_scopes.empty());
    EXPECT_TRUE(target_methods.empty());
}

TEST_F(Initialize, RefusesWithoutHome) {
    const AgentHome home = AgentHome::unset();
    EXPECT_EQ(profiler->Initialize(&runtime), kCancelled);
    EXPECT_EQ(output.text(), std::wstring(kInvoked) +
                                 L"CClrProfiler::ShouldTrace(): could not load agent.config.\n");
}

TEST_F(Initialize, RefusesARuntimeWithoutInfo2) {
    runtime.has_info2 = false;
    const AgentHome home(listing_this());
    EXPECT_EQ(profiler->Initialize(&runtime), kCancelled);
    EXPECT_EQ(output.text(),
              std::wstring(kInvoked) +
                  L"CClrProfiler::Initialize(): profiler info 2 interface load error.\n");
    EXPECT_TRUE(runtime.calls.empty());
    EXPECT_TRUE(excluded_scopes.empty());
    EXPECT_TRUE(target_methods.empty());
}

TEST_F(Initialize, TakesARuntimeWithoutInfo3) {
    runtime.has_info3 = false;
    EXPECT_EQ(mask_for(listing_this()), 0x10020224U);
    EXPECT_TRUE(profilerInfo2);
    EXPECT_FALSE(profilerInfo3);
}

TEST_F(Initialize, GoesOnWithoutInfo) {
    runtime.has_info = false;
    const AgentHome home(listing_this());
    EXPECT_EQ(profiler->Initialize(&runtime), S_OK);
    EXPECT_TRUE(runtime.calls.empty());
    EXPECT_EQ(output.text(), std::wstring(kInvoked) + kAfterShouldTrace + no_exclusions());
    EXPECT_EQ(excluded_scopes.size(), 1U);
}

TEST_F(Initialize, GoesOnWhenTheMaskIsRefused) {
    runtime.set_event_mask_result = E_FAIL;
    const AgentHome home(listing_this());
    EXPECT_EQ(profiler->Initialize(&runtime), S_OK);
    EXPECT_EQ(output.text(), std::wstring(kInvoked) + kAfterShouldTrace +
                                 L"Failed to set event mask: COR_PRF_MONITOR_JIT_COMPILATION\n" +
                                 no_exclusions());
    EXPECT_EQ(excluded_scopes.size(), 1U);
}

TEST_F(Initialize, GoesOnWithoutAStepThatThrows) {
    std::optional<testing::FailingAllocation> failing; // the first one of the exclusions
    runtime.on_event_mask = [&failing] { failing.emplace(0); };
    const AgentHome home(listing_this());
    EXPECT_EQ(profiler->Initialize(&runtime), S_OK);
    EXPECT_TRUE(testing::FailingAllocation::has_come());
    EXPECT_EQ(output.text(), std::wstring(kInvoked) + kAfterShouldTrace +
                                 L"CClrProfiler::Initialize(): a step was left out: "
                                 L"std::bad_alloc\n");
    EXPECT_TRUE(excluded_scopes.empty());
    EXPECT_EQ(target_methods.size(), 59U);
}

TEST_F(Initialize, BuildsItsTablesWithoutARuntime) {
    const AgentHome home(listing_this());
    EXPECT_EQ(profiler->Initialize(nullptr), S_OK);
    EXPECT_FALSE(profilerInfo2);
    EXPECT_EQ(excluded_scopes.size(), 1U);
    EXPECT_EQ(target_methods.size(), 59U);
    EXPECT_EQ(output.text(), std::wstring(kInvoked) + kAfterShouldTrace + no_exclusions());
}

TEST_F(Initialize, LoadsTheExclusionsBesideTheLibrary) {
    std::ofstream(std::filesystem::path(exclusions_file()), std::ios::binary)
        << "// comment\r\n\r\n[A]B.C\r\n[\xE9]x";
    const AgentHome home(listing_this());
    EXPECT_EQ(profiler->Initialize(&runtime), S_OK);
    std::filesystem::remove(std::filesystem::path(exclusions_file()));
    EXPECT_EQ(output.text(), std::wstring(kInvoked) + kAfterShouldTrace);
    ASSERT_EQ(excluded_scopes.size(), 3U);
    EXPECT_EQ(excluded_scopes[1].assembly, L"A");
    EXPECT_EQ(excluded_scopes[1].path, (std::vector<std::wstring>{L"B", L"C"}));
    EXPECT_EQ(excluded_scopes[2].assembly, L"\u00E9"); // bytes are widened one by one
    EXPECT_EQ(excluded_scopes[2].path, std::vector<std::wstring>{L"x"});
}

// Each question about a setting reads the file afresh, so that a file that goes away after the
// gate has read it leaves two lines for each question asked.
std::wstring unanswered(int questions) {
    std::wstring lines;
    for (int i = 0; i < questions; ++i) {
        lines += L"CClrProfiler::LoadAgentConfig(): Could not find agent.config file\n"
                 L"CClrProfiler::CheckKey(): could not load agent config.\n";
    }
    return lines;
}

TEST_F(Initialize, AsksFiveQuestions) {
    const AgentHome home(listing_this());
    runtime.on_info2_query = [&home] { home.remove_config(); };
    EXPECT_EQ(profiler->Initialize(&runtime), S_OK);
    EXPECT_EQ(output.text(),
              std::wstring(kInvoked) + kAfterShouldTrace + unanswered(5) + no_exclusions());
    EXPECT_EQ(runtime.event_mask, 0x10020224U);
}

TEST_F(Initialize, AsksNotForInliningThatIsAlreadyOff) {
    const AgentHome home(listing_this(R"(inlining="Disabled")"));
    runtime.on_info2_query = [&home] { home.remove_config(); };
    EXPECT_EQ(profiler->Initialize(&runtime), S_OK);
    EXPECT_EQ(output.text(),
              std::wstring(kInvoked) + kAfterShouldTrace + unanswered(4) + no_exclusions());
    EXPECT_EQ(runtime.event_mask, 0x10220224U);
}

TEST_F(Initialize, IsSilentAboutTheFileWithoutTheVariable) {
    const AgentHome home(listing_this());
    runtime.on_info2_query = [] { testing::set_variable(kHomeVariable, std::nullopt); };
    EXPECT_EQ(profiler->Initialize(&runtime), S_OK);
    std::wstring lines;
    for (int i = 0; i < 5; ++i) {
        lines += L"CClrProfiler::CheckKey(): could not load agent config.\n";
    }
    EXPECT_EQ(output.text(), std::wstring(kInvoked) + kAfterShouldTrace + lines + no_exclusions());
}

TEST_F(Initialize, TakesAFileWithoutAppSettings) {
    const std::string config = listing_this();
    const std::size_t start = config.find("<appSettings>");
    const std::size_t end = config.find("<instrumentation>");
    EXPECT_EQ(mask_for(config.substr(0, start) + config.substr(end)), 0x10020224U);
}

TEST_F(Initialize, SwitchesInliningOffByKey) {
    EXPECT_EQ(mask_for(listing_this("", setting("Inlining", "Disabled"))), 0x10220224U);
    EXPECT_TRUE(profiler->switches().inliningDisabled);
}

TEST_F(Initialize, SwitchesInliningOffByTheApplicationsEntry) {
    EXPECT_EQ(mask_for(listing_this(R"(inlining="Disabled")")), 0x10220224U);
    EXPECT_TRUE(profiler->switches().inliningDisabled);
}

TEST_F(Initialize, LetsTheApplicationsEntryWinOverTheKey) {
    EXPECT_EQ(mask_for(listing_this(R"(inlining="Disabled")", setting("Inlining", "Enabled"))),
              0x10220224U);
}

TEST_F(Initialize, SwitchesTransparencyChecksOffForTwo) {
    EXPECT_EQ(mask_for(listing_this("", setting("SecurityTransparencyInstrumentation", "2"))),
              0x50020224U);
    EXPECT_TRUE(profiler->switches().transparencyFullTrust);
    EXPECT_TRUE(profiler->switches().transparencyInstrumentation);
}

TEST_F(Initialize, KeepsTransparencyChecksForOne) {
    EXPECT_EQ(mask_for(listing_this("", setting("SecurityTransparencyInstrumentation", "1"))),
              0x10020224U);
    EXPECT_FALSE(profiler->switches().transparencyFullTrust);
    EXPECT_TRUE(profiler->switches().transparencyInstrumentation);
}

TEST_F(Initialize, CombinesBothSwitches) {
    EXPECT_EQ(mask_for(listing_this("", setting("Inlining", "Disabled") +
                                            setting("SecurityTransparencyInstrumentation", "2"))),
              0x50220224U);
}

TEST_F(Initialize, LeavesEverySwitchOffWithoutSettings) {
    mask_for(listing_this());
    const ProfilerSwitches& switches = profiler->switches();
    EXPECT_FALSE(switches.inliningDisabled);
    EXPECT_FALSE(switches.transparencyFullTrust);
    EXPECT_FALSE(switches.transparencyInstrumentation);
    EXPECT_FALSE(switches.logTraceIdEnabled);
    EXPECT_FALSE(switches.insertLogTraceId);
    EXPECT_FALSE(switches.addAttributeLogTraceId);
}

TEST_F(Initialize, ReadsTheLogTraceIdSwitches) {
    const std::string insert = setting("InsertLogTraceIdIntoLogs", "Enabled");
    const std::string add = setting("AddAttributeLogTraceId", "Enabled");
    for (const auto& [settings, inserts, adds] :
         {std::tuple(insert, true, false), std::tuple(add, false, true),
          std::tuple(insert + add, true, true)}) {
        const ComPtr<ComObject<CClrProfiler>> one(new ComObject<CClrProfiler>());
        const AgentHome home(listing_this("", settings));
        EXPECT_EQ(one->Initialize(nullptr), S_OK);
        EXPECT_TRUE(one->switches().logTraceIdEnabled);
        EXPECT_EQ(one->switches().insertLogTraceId, inserts);
        EXPECT_EQ(one->switches().addAttributeLogTraceId, adds);
    }
}

TEST_F(Initialize, BuildsTheTargetTableFromTheSwitches) {
    const std::string insert = setting("InsertLogTraceIdIntoLogs", "Enabled");
    const std::string add = setting("AddAttributeLogTraceId", "Enabled");
    for (const auto& [settings, switches] :
         {std::pair(std::string(), LogTraceIdSwitches{}),
          std::pair(insert, LogTraceIdSwitches{.enabled = true, .insert_id = true}),
          std::pair(add, LogTraceIdSwitches{.enabled = true, .add_attribute = true}),
          std::pair(insert + add, LogTraceIdSwitches{true, true, true})}) {
        const auto take_names = [] {
            std::vector<std::wstring_view> taken;
            for (const TargetMethod& row : target_methods) {
                taken.push_back(row.name);
            }
            target_methods.clear();
            return taken;
        };
        build_target_methods(switches);
        const auto expected = take_names();
        const ComPtr<ComObject<CClrProfiler>> one(new ComObject<CClrProfiler>());
        const AgentHome home(listing_this("", settings));
        EXPECT_EQ(one->Initialize(nullptr), S_OK);
        EXPECT_EQ(take_names(), expected) << settings;
    }
}

// Sees the lines of the log as they are written, before whoever collects them.
std::vector<std::wstring> tables_at_exclusions;
LONG CALLBACK note_tables(EXCEPTION_POINTERS* pointers) {
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    if (record.ExceptionCode == 0x4001000A) {
        const std::wstring line = reinterpret_cast<const wchar_t*>(record.ExceptionInformation[1]);
        if (line.find(L"excluded scopes") != std::wstring::npos) {
            tables_at_exclusions.push_back(target_methods.empty() ? L"no table" : L"table");
        }
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

TEST_F(Initialize, LoadsTheExclusionsBeforeTheTargetTable) {
    tables_at_exclusions.clear();
    void* const handler = AddVectoredExceptionHandler(1, note_tables);
    mask_for(listing_this());
    RemoveVectoredExceptionHandler(handler);
    EXPECT_EQ(tables_at_exclusions, std::vector<std::wstring>{L"no table"});
    EXPECT_EQ(target_methods.size(), 59U);
}

TEST_F(Initialize, ForAttachAnswersOkWhateverTheGateSays) {
    const AgentHome home = AgentHome::unset();
    EXPECT_EQ(profiler->InitializeForAttach(&runtime, nullptr, 0), S_OK);
    EXPECT_TRUE(runtime.calls.empty());
    const AgentHome listed(listing_this());
    EXPECT_EQ(profiler->InitializeForAttach(&runtime, nullptr, 0), S_OK);
    EXPECT_EQ(runtime.calls, std::vector<std::string>{"SetEventMask"});
}

// What a runtime refuses to a profiler that comes later.
constexpr DWORD kNotAfterAttach = ~DWORD(0x106502FE);

TEST_F(Initialize, ForAttachAsksForThePartThatItMayHave) {
    runtime.refused_events = kNotAfterAttach;
    const AgentHome home(listing_this());
    EXPECT_EQ(profiler->InitializeForAttach(&runtime, nullptr, 0), S_OK);
    EXPECT_EQ(runtime.calls, (std::vector<std::string>{"SetEventMask", "SetEventMask"}));
    EXPECT_EQ(runtime.event_mask, 0x10000224U);
    EXPECT_EQ(output.text(), std::wstring(kInvoked) + kAfterShouldTrace +
                                 L"Failed to set event mask: COR_PRF_MONITOR_JIT_COMPILATION\n" +
                                 no_exclusions());
    // Methods are not even looked at: what was compiled before may be running.
    EXPECT_EQ(profiler->JITCompilationStarted(0x4711, TRUE), S_OK);
    EXPECT_EQ(runtime.calls.size(), 2U);
    EXPECT_TRUE(KnownFunction(0x4711));
    EXPECT_EQ(profiler->ProfilerAttachComplete(), S_OK);
    EXPECT_EQ(runtime.calls,
              (std::vector<std::string>{"SetEventMask", "SetEventMask", "EnumModules"}));
    BOOL use = TRUE;
    EXPECT_EQ(profiler->JITCachedFunctionSearchStarted(0x4712, &use), S_OK);
    EXPECT_TRUE(KnownFunction(0x4712));
    forget_functions_of(1);
}

TEST_F(Initialize, ForAttachTakesTheModulesAndThreadsThatAreThere) {
    runtime.has_info4 = true;
    runtime.modules = {{0x10, {L"C:\\runtime\\mscorlib.dll", 0x20}},
                       {0x11, {L"C:\\shop\\Shop.dll", 0x21}}};
    runtime.module_flags = {{0x10, COR_PRF_MODULE_DISK}, {0x11, COR_PRF_MODULE_DISK}};
    runtime.assemblies = {{0x20, L"mscorlib"}, {0x21, L"Shop"}};
    runtime.present_modules.ids = {0x11, 0x10};
    // No other test's: what it leaves is taken for threads that are known.
    runtime.present_threads.ids = {0x7FF000002000, 0x7FF000002040};
    const AgentHome home(listing_this());
    EXPECT_EQ(profiler->InitializeForAttach(&runtime, nullptr, 0), S_OK);
    EXPECT_EQ(loaded_modules(), std::vector<ModuleID>());
    EXPECT_EQ(profiler->ProfilerAttachComplete(), S_OK);
    EXPECT_EQ(loaded_modules(), (std::vector<ModuleID>{0x10, 0x11}));
    EXPECT_EQ(mscorlibModuleId, 0x10U);
    EXPECT_EQ(ThreadMap, (std::map<DWORD, ThreadID>{{0x2000, 0x7FF000002000}, //
                                                    {0x2040, 0x7FF000002040}}));
    EXPECT_EQ(runtime.present_modules.references, 0U);
    EXPECT_EQ(runtime.present_threads.references, 0U);
    for (const ModuleID module : runtime.present_modules.ids) {
        EXPECT_EQ(profiler->ModuleUnloadStarted(module), S_OK);
    }
    for (const ThreadID thread : runtime.present_threads.ids) {
        EXPECT_EQ(profiler->ThreadDestroyed(thread), S_OK);
    }
    ThreadMap.clear();
}

TEST_F(Initialize, AtTheStartAsksForTheWholeMaskOnly) {
    runtime.refused_events = kNotAfterAttach;
    const AgentHome home(listing_this());
    EXPECT_EQ(profiler->Initialize(&runtime), S_OK);
    EXPECT_EQ(runtime.calls, std::vector<std::string>{"SetEventMask"});
}

TEST_F(Initialize, ForAttachGoesThroughTheCallbackTable) {
    class Watched final : public CClrProfiler {
    public:
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
        ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
        ULONG STDMETHODCALLTYPE Release() override { return 1; }
        HRESULT STDMETHODCALLTYPE Initialize(IUnknown* info) noexcept override {
            seen = info;
            return E_FAIL;
        }
        IUnknown* seen = nullptr;
    } watched;
    EXPECT_EQ(watched.InitializeForAttach(&runtime, nullptr, 0), S_OK);
    EXPECT_EQ(watched.seen, &runtime);
}

TEST_F(Initialize, IsNoWorkerByTheTypeAlone) {
    // This program is no w3wp.exe: the type alone does not make it a worker.
    const testing::ScopedVariable type("APP_TYPE", "TYPE_IIS");
    EXPECT_EQ(mask_for(listing_this("", setting("Corvane", "Disabled"))), 0x10020224U);
}

TEST_F(Initialize, ReleasesTheRuntimeWithTheObject) {
    mask_for(listing_this());
    EXPECT_EQ(runtime.references, 4U); // the test, the object, and the two process-wide pointers
    profiler = {};
    EXPECT_EQ(runtime.references, 3U);
}

class ModuleLoadFinished : public ProfilerTest {
protected:
    ModuleLoadFinished() : home(listing_this()) {
        EXPECT_EQ(profiler->Initialize(&runtime), S_OK);
        runtime.calls.clear();
        runtime.modules[0x10] = {L"C:\\runtime\\corelib.dll", 0x20};
        runtime.assemblies[0x20] = L"mscorlib";
        start = output.text();
    }

    std::wstring lines() const { return output.text().substr(start.size()); }

    AgentHome home;
    std::wstring start;
};

TEST_F(ModuleLoadFinished, NotesMscorlib) {
    EXPECT_EQ(profiler->ModuleLoadFinished(0x10, E_FAIL), S_OK); // the status is not looked at
    EXPECT_EQ(mscorlibModuleId, 0x10U);
    EXPECT_EQ(runtime.calls, (std::vector<std::string>{"GetModuleInfo", "GetModuleInfo",
                                                       "GetAssemblyInfo", "GetAssemblyInfo"}));
    EXPECT_EQ(lines(), L""); // level 4
}

// Those that the garbage collector may take away are not asked about anything.
TEST_F(ModuleLoadFinished, KeepsModulesThatStayLoaded) {
    const std::vector<ModuleID> before = loaded_modules();
    for (const ModuleID module : {0x10, 0x11, 0x12, 0x13, 0x14}) {
        runtime.modules[module] = runtime.modules[0x10];
    }
    runtime.module_flags = {{0x10, COR_PRF_MODULE_DISK},
                            {0x11, COR_PRF_MODULE_DISK | COR_PRF_MODULE_COLLECTIBLE},
                            {0x12, COR_PRF_MODULE_DYNAMIC | COR_PRF_MODULE_COLLECTIBLE},
                            {0x14, COR_PRF_MODULE_DISK}};
    for (const ModuleID module : {0x10, 0x11, 0x12, 0x13}) { // the last one has no flags
        EXPECT_EQ(profiler->ModuleLoadFinished(module, S_OK), S_OK);
    }
    EXPECT_EQ(profiler->ModuleLoadFinished(0x14, E_FAIL), S_OK); // was not loaded
    EXPECT_EQ(before, std::vector<ModuleID>());
    EXPECT_EQ(loaded_modules(), std::vector<ModuleID>{0x10});
    for (const ModuleID module : {0x10, 0x11, 0x12}) {
        EXPECT_EQ(profiler->ModuleUnloadStarted(module), S_OK);
    }
    EXPECT_EQ(loaded_modules(), std::vector<ModuleID>());
}

TEST_F(ModuleLoadFinished, IsUndoneWithTheReferencesOfTheModule) {
    keep_references(0x10, {});
    keep_references(0x11, {});
    EXPECT_EQ(profiler->ModuleUnloadStarted(0x10), S_OK);
    EXPECT_FALSE(known_references(0x10).has_value());
    EXPECT_TRUE(known_references(0x11).has_value());
    forget_references(0x11);
}

// The runtime does not tell what it is.
TEST_F(ModuleLoadFinished, DoesNotTakeEverythingOfItsNameForTheManagedLibrary) {
    runtime.assemblies[0x20] = L"kite.managed";
    EXPECT_EQ(profiler->ModuleLoadFinished(0x10, S_OK), S_OK);
    EXPECT_FALSE(managedLibraryLoaded);
    EXPECT_EQ(std::ranges::count(runtime.calls, "GetModuleMetaData"), 1);
}

TEST_F(ModuleLoadFinished, LetsALaterLoadOverwrite) {
    runtime.modules[0x11] = runtime.modules[0x10];
    EXPECT_EQ(profiler->ModuleLoadFinished(0x10, S_OK), S_OK);
    EXPECT_EQ(profiler->ModuleLoadFinished(0x11, S_OK), S_OK);
    EXPECT_EQ(mscorlibModuleId, 0x11U);
}

TEST_F(ModuleLoadFinished, NotesNoOtherName) {
    for (const wchar_t* const name :
         {L"MsCorLib", L"mscorlib.dll", L"mscorli", L"mscorlib2", L"", L"System.Private.CoreLib"}) {
        runtime.assemblies[0x20] = name;
        EXPECT_EQ(profiler->ModuleLoadFinished(0x10, S_OK), S_OK);
        EXPECT_EQ(mscorlibModuleId, 0U) << name;
    }
}

TEST_F(ModuleLoadFinished, ReportsAModuleThatIsUnknown) {
    EXPECT_EQ(profiler->ModuleLoadFinished(0x99, S_OK), E_INVALIDARG);
    EXPECT_EQ(lines(), std::wstring(L"Failed to get module metadata interface (") +
                           hresult_text(CORPROF_E_DATAINCOMPLETE).c_str() +
                           L")\nFailed to get assembly metadata interface (" +
                           hresult_text(E_INVALIDARG).c_str() + L")\n");
    EXPECT_EQ(runtime.calls, (std::vector<std::string>{"GetModuleInfo", "GetAssemblyInfo"}));
    EXPECT_EQ(mscorlibModuleId, 0U);
}

TEST_F(ModuleLoadFinished, ReportsAnAssemblyThatIsUnknown) {
    runtime.assemblies.clear();
    EXPECT_EQ(profiler->ModuleLoadFinished(0x10, S_OK), E_INVALIDARG);
    EXPECT_EQ(lines(), std::wstring(L"Failed to get assembly metadata interface (") +
                           hresult_text(E_INVALIDARG).c_str() + L")\n");
}

TEST_F(ModuleLoadFinished, ReturnsTheResultOfTheLastAssemblyQuery) {
    runtime.assembly_text_result = E_ACCESSDENIED;
    EXPECT_EQ(profiler->ModuleLoadFinished(0x10, S_OK), E_ACCESSDENIED);
    EXPECT_EQ(lines(), L"");
    EXPECT_EQ(mscorlibModuleId, 0U);
}

// The callbacks about a method; what they decide is tested with the decision.
class MethodCallbacks : public ProfilerTest {
protected:
    ~MethodCallbacks() override {
        EXPECT_EQ(profiler->ModuleUnloadStarted(FakeMethod::kModule), S_OK);
        EXPECT_EQ(method.metadata_references, 1U);
    }

    void start(const std::string& settings = "") {
        const AgentHome home(listing_this("", settings));
        EXPECT_EQ(profiler->Initialize(&method), S_OK);
        start_ = output.text();
        EXPECT_EQ(profiler->ModuleUnloadStarted(FakeMethod::kModule),
                  S_OK); // all is forgotten of it
        method.type_name = L"System.Net.HttpWebRequest";
        method.method_name = L"GetResponse";
        method.forget_calls();
    }
    std::wstring lines() const { return output.text().substr(start_.size()); }

    HRESULT compile() { return profiler->JITCompilationStarted(FakeMethod::kFunction, TRUE); }
    HRESULT search(BOOL& use) {
        return profiler->JITCachedFunctionSearchStarted(FakeMethod::kFunction, &use);
    }

    FakeMethod method;

private:
    std::wstring start_;
};

// Whoever looks at modules has listed them while they were loaded.
TEST_F(MethodCallbacks, AModuleGoesWhenNobodyLooksAtModules) {
    start();
    std::atomic<bool> may_go = false;
    std::jthread unloading;
    add_loaded_module(nullptr, FakeMethod::kModule);
    visit_loaded_modules([&](ModuleID module) {
        EXPECT_EQ(module, FakeMethod::kModule);
        unloading = std::jthread([&] {
            EXPECT_EQ(profiler->ModuleUnloadStarted(FakeMethod::kModule), S_OK);
            may_go = true;
        });
        Sleep(100);
        EXPECT_FALSE(may_go);
        return false;
    });
    unloading.join();
    EXPECT_TRUE(may_go);
    visit_loaded_modules([](ModuleID) -> bool { throw std::logic_error("it is gone"); });
}

// Of a method that is chosen, in a module that cannot be written to.
std::wstring inserting() {
    const std::wstring reason = std::wstring(L"(") + hresult_text(E_NOINTERFACE).c_str() + L")\n";
    const std::wstring channel = L"[Shop]System.Net.HttpWebRequest:GetResponse() : ";
    return L"===================Inserting prologue for: System.Net.HttpWebRequest.GetResponse\n" +
           channel + L"Failed to get module metadata interface " + reason + //
           channel + L"Failed to create prologue/epilogue IL " + reason +
           L"Failed to create method body instrumenter " + reason;
}

TEST_F(MethodCallbacks, FollowTheTable) {
    start();
    EXPECT_EQ(compile(), S_OK);
    EXPECT_EQ(lines(), inserting());
    method.forget_calls();
    BOOL use = TRUE;
    EXPECT_EQ(search(use), S_OK);
    EXPECT_EQ(use, FALSE);
    EXPECT_EQ(lines(),
              inserting() +
                  L"UseCachedFunction(Shop, System.Net.HttpWebRequest.GetResponse)=False\n");
}

TEST_F(MethodCallbacks, LeaveAMethodForGoodUntilItsModuleGoes) {
    start();
    for (int i = 0; i < 2; ++i) {
        method.forget_calls();
        EXPECT_EQ(compile(), S_OK);
        const std::wstring once = lines();
        EXPECT_EQ(compile(), S_OK);
        EXPECT_EQ(lines(), once + L"===================Inserting prologue for: "
                                  L"System.Net.HttpWebRequest.GetResponse\n");
        start();
    }
}

TEST_F(MethodCallbacks, DescribeNoMethodThatItsNameRulesOut) {
    start();
    method.has_info3 = true;
    method.method_name = L"Place";
    const std::vector<std::string> asked = {"GetFunctionInfo(F1)", "GetCurrentThreadID()",
                                            "GetMethodProps(6000007, buffer of 256) class flags"};
    EXPECT_EQ(compile(), S_OK); // the first of its module
    method.forget_calls();
    EXPECT_EQ(compile(), S_OK);
    EXPECT_EQ(method.calls, asked);
    method.forget_calls();
    BOOL use = 5;
    EXPECT_EQ(search(use), S_OK);
    EXPECT_EQ(method.calls, asked);
    EXPECT_EQ(use, 5);
    EXPECT_EQ(lines(), L"");
    EXPECT_EQ(profiler->ModuleUnloadStarted(FakeMethod::kModule), S_OK);
    EXPECT_EQ(method.metadata_references, 1U);
    method.forget_calls();
    EXPECT_EQ(compile(), S_OK);
    EXPECT_GT(method.calls.size(), asked.size());
    EXPECT_EQ(profiler->ModuleUnloadStarted(FakeMethod::kModule), S_OK);
}

TEST_F(MethodCallbacks, AnswerOkBeforeStartUp) {
    EXPECT_EQ(compile(), S_OK);
    BOOL use = 5;
    EXPECT_EQ(search(use), S_OK);
    EXPECT_EQ(use, 5);
    EXPECT_TRUE(method.calls.empty());
    EXPECT_EQ(output.text(), L"");
}

TEST_F(MethodCallbacks, AnswerOkWhenAnyCallFails) {
    start();
    for (std::size_t call = 0; call < 17; ++call) {
        method.results = {{call, E_FAIL}};
        method.forget_calls();
        EXPECT_EQ(compile(), S_OK) << call;
        method.forget_calls();
        BOOL use = TRUE;
        EXPECT_EQ(search(use), S_OK) << call;
    }
}

TEST_F(MethodCallbacks, LeaveAMethodThatThereIsNoMemoryFor) {
    start();
    EXPECT_EQ(compile(), S_OK); // the facts about its module are known
    std::wstring expected = lines();
    method.writes_down = false;
    // Long enough that the names are not kept in place.
    for (std::wstring* const name :
         {&method.assembly_name, &method.module_name, &method.type_name, &method.method_name}) {
        name->assign(1000, L'n');
    }
    const std::wstring line = std::wstring(L"Failed to create method info (") +
                              hresult_text(E_OUTOFMEMORY).c_str() + L")\n";
    std::size_t failures = 0;
    bool has_failed = true;
    for (std::size_t granted = 0; has_failed; ++granted) {
        BOOL use = 5;
        for (const bool compiling : {true, false}) {
            method.forget_calls();
            const testing::FailingAllocation failing(granted);
            EXPECT_EQ(compiling ? compile() : search(use), S_OK);
            has_failed = testing::FailingAllocation::has_come();
            if (has_failed) {
                expected += line;
                ++failures;
            }
        }
        EXPECT_EQ(use, 5);
    }
    EXPECT_GE(failures, 2U);
    EXPECT_EQ(lines(), expected);
}

TEST_F(MethodCallbacks, LeaveTransparentMethodsUnlessTheConfigurationAsksForThem) {
    for (const auto& [value, is_chosen] : {std::pair("0", false), std::pair("1", true),
                                           std::pair("2", true), std::pair("3", false)}) {
        start(setting("SecurityTransparencyInstrumentation", value));
        method.attributes = {
            {FakeMethod::kMethodToken, L"System.Security.SecurityTransparentAttribute"}};
        EXPECT_EQ(compile(), S_OK);
        EXPECT_EQ(lines(), is_chosen ? inserting()
                                     : std::wstring(L"it is transparent (") +
                                           hresult_text(S_OK).c_str() + L")\n");
    }
}

class ThreadCallbacks : public ProfilerTest {
protected:
    ~ThreadCallbacks() override { ThreadMap.clear(); }
};

TEST_F(ThreadCallbacks, KeepTheThreadMap) {
    EXPECT_EQ(profiler->ThreadAssignedToOSThread(0x7FF0000000D1, 40), S_OK);
    EXPECT_EQ(find_thread(40), 0x7FF0000000D1U);
    EXPECT_EQ(profiler->ThreadDestroyed(0x7FF000000028), S_OK);
    EXPECT_TRUE(ThreadMap.empty());
    EXPECT_EQ(profiler->ThreadDestroyed(0x7FF0000000D1), S_OK);
    EXPECT_EQ(ThreadMap, (std::map<DWORD, ThreadID>{{0xD1, 0}}));
    EXPECT_EQ(output.text(), L"");
}

TEST_F(ThreadCallbacks, AnswerOkWithoutMemory) {
    const testing::FailingAllocation failing(0);
    EXPECT_EQ(profiler->ThreadAssignedToOSThread(0x7FF0000000D1, 40), S_OK);
    EXPECT_TRUE(testing::FailingAllocation::has_come());
    EXPECT_TRUE(ThreadMap.empty());
    EXPECT_EQ(output.text(), std::wstring(L"Failed to note a thread (") +
                                 hresult_text(E_OUTOFMEMORY).c_str() + L")\n");
}

// The parameter: whether the form is strict.
class EveryCallback : public ProfilerTest, public ::testing::WithParamInterface<bool> {
protected:
    EveryCallback() {
        default_log = DebugLog(L"", 0);
        method.has_info3 = true;
        method.has_info4 = true;
        method.writes_down = false;
        method.type_name = L"System.Net.HttpWebRequest";
        method.method_name = L"GetResponse";
        // Too long to be kept in place.
        method.assembly_name.assign(1000, L'a');
        method.module_name.assign(1000, L'm');
    }
    ~EveryCallback() override {
        default_log = DebugLog();
        ThreadMap.clear();
        forget_functions_of(1);
    }

    // What the callbacks before may have left of the id and of the method.
    void forget() {
        method.forget_calls();
        EXPECT_EQ(profiler->ModuleUnloadStarted(id), S_OK);
        EXPECT_EQ(profiler->ModuleUnloadStarted(FakeMethod::kModule), S_OK);
        EXPECT_EQ(profiler->ThreadDestroyed(id), S_OK);
    }
    static void forget_tables() {
        excluded_scopes.clear();
        method_patterns = MethodPatterns();
        target_methods.clear();
    }

    const testing::DebuggerPresence nobody{false}; // a line takes memory of the test's own
    FakeMethod method;
    UINT_PTR id = 0x10000;
};

INSTANTIATE_TEST_SUITE_P(Forms, EveryCallback, ::testing::Bool());

struct Callback {
    const char* name;
    std::function<HRESULT()> call;
    bool allocates = true;
    HRESULT without_memory = S_OK; // may be the answer as well
    std::function<void()> prepare = [] {};
};

// Whichever request of memory fails: nothing is thrown to the runtime.
TEST_P(EveryCallback, AnswersWithoutMemory) {
    const bool strict = GetParam();
    const AgentHome home(listing_this());
    const ScopedVariable form("CORVANE_STRICT_IL", strict ? "1" : "0");
    const ScopedVariable patterns("CORVANE_METHODS", "Shop.NeverMet.*");
    CClrProfiler& served = *profiler.get();
    BOOL use_cached = TRUE;
    BOOL should_inline = TRUE;
    const Callback callbacks[] = {
        {.name = "Initialize",
         .call = [&] { return served.Initialize(&method); },
         .without_memory = kCancelled,
         .prepare = forget_tables},
        {.name = "InitializeForAttach",
         .call = [&] { return served.InitializeForAttach(&method, nullptr, 0); },
         .prepare = forget_tables},
        {.name = "ProfilerAttachComplete",
         .call = [&] { return served.ProfilerAttachComplete(); },
         .prepare =
             [&] {
                 begin_adoption();
                 method.present_modules.ids = {id};
                 method.present_threads.ids = {id};
             }},
        {.name = "ModuleLoadFinished",
         .call = [&] { return served.ModuleLoadFinished(id, S_OK); },
         .without_memory = E_OUTOFMEMORY},
        {.name = "ModuleLoadFinished of one that was not loaded",
         .call = [&] { return served.ModuleLoadFinished(id, E_FAIL); },
         .without_memory = E_OUTOFMEMORY},
        {.name = "JITCompilationStarted",
         .call = [&] { return served.JITCompilationStarted(id, TRUE); }},
        {.name = "JITCachedFunctionSearchStarted",
         .call = [&] { return served.JITCachedFunctionSearchStarted(id, &use_cached); }},
        {.name = "JITInlining",
         .call = [&] { return served.JITInlining(id, id, &should_inline); },
         .allocates = strict},
        {.name = "ThreadAssignedToOSThread",
         .call = [&] { return served.ThreadAssignedToOSThread(id, static_cast<DWORD>(id)); }},
        {.name = "ThreadDestroyed", .call = [&] { return served.ThreadDestroyed(id); }},
        // Only on its first call in a process.
        {.name = "ModuleUnloadStarted",
         .call = [&] { return served.ModuleUnloadStarted(id); },
         .allocates = false},
        {.name = "Shutdown", .call = [&] { return served.Shutdown(); }},
    };
    for (const Callback& callback : callbacks) {
        int failures = 0;
        bool has_failed = true;
        for (std::size_t granted = 0; has_failed; ++granted, ++id) {
            callback.prepare();
            HRESULT hr = S_OK;
            {
                const testing::FailingAllocation failing(granted);
                hr = callback.call();
                has_failed = testing::FailingAllocation::has_come();
            }
            failures += has_failed ? 1 : 0;
            EXPECT_TRUE(hr == S_OK || (has_failed && hr == callback.without_memory))
                << callback.name << ", " << granted << " granted";
            forget();
        }
        EXPECT_EQ(failures > 0, callback.allocates) << callback.name;
    }
    // The method was one that is chosen.
    EXPECT_EQ(target_methods.size(), 59U);
    EXPECT_EQ(use_cached, FALSE);
    EXPECT_EQ(should_inline, strict ? FALSE : TRUE);
}

// What is made on first use is made in a process of its own.
TEST(FirstCallbackDeathTest, AnswersWithoutMemory) {
    for (std::size_t granted = 0; granted < 4; ++granted) {
        EXPECT_EXIT(
            {
                const ComPtr<ComObject<CClrProfiler>> first(new ComObject<CClrProfiler>());
                const testing::FailingAllocation failing(granted);
                const HRESULT hr = first->ModuleUnloadStarted(1);
                std::_Exit(hr == S_OK ? 42 : 43); // abort ends with 3
            },
            ::testing::ExitedWithCode(42), "");
    }
}

TEST_F(ProfilerTest, AnswersTheOtherCallbacksWithOk) {
    EXPECT_EQ(profiler->Shutdown(), S_OK);
    EXPECT_EQ(profiler->ModuleUnloadFinished(1, E_FAIL), S_OK);
    BOOL should_inline = 5;
    EXPECT_EQ(profiler->JITInlining(1, 2, &should_inline), S_OK);
    EXPECT_EQ(should_inline, 5);
    EXPECT_EQ(profiler->GarbageCollectionFinished(), S_OK);
    EXPECT_EQ(profiler->ProfilerDetachSucceeded(), S_OK);
    EXPECT_EQ(profiler->ModuleLoadFinished(1, S_OK), S_OK); // before Initialize
}

} // namespace
} // namespace corvane
