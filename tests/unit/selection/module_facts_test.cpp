#include "selection/module_facts.h"

#include "selection/jit_flow.h"
#include "selection/target_methods.h"
#include "tests/support/allocations.h"
#include "tests/support/debug_output.h"
#include "tests/support/fake_method.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace corvane {
namespace {

using ::testing::Contains;
using testing::DebugOutput;
using ::testing::ElementsAre;
using testing::FailingAllocation;
using testing::FakeMethod;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr wchar_t kTrace[] = L"Corvane.Instrumentation.TraceAttribute";
constexpr wchar_t kTransparent[] = L"System.Security.SecurityTransparentAttribute";

// A method that no rule chooses, in a module that names no attribute of interest.
class ModuleFactsTest : public ::testing::Test {
protected:
    ModuleFactsTest() {
        build_target_methods({});
        runtime.has_info3 = true;
        runtime.type_defs = {L"<Module>", L"Shop.Cart", L"Shop.Orders"};
        runtime.type_refs = {L"System.Object", L"System.Runtime.CompilerServices.Unsafe"};
    }
    ~ModuleFactsTest() override {
        forget_module_facts(FakeMethod::kModule);
        target_methods.clear();
        EXPECT_EQ(runtime.references, 1U);
        EXPECT_EQ(runtime.metadata_references, 1U);
    }

    bool ask() { return needs_description(&runtime, FakeMethod::kFunction); }
    // Asks as for the next method, of that name.
    bool ask_about(const wchar_t* method) {
        runtime.method_name = method;
        return ask();
    }

    FakeMethod runtime;
};

// --- What the next methods are asked

TEST_F(ModuleFactsTest, AsksAboutAKnownModuleNoMore) {
    EXPECT_FALSE(ask());
    runtime.forget_calls();
    EXPECT_FALSE(ask());
    EXPECT_THAT(runtime.calls, ElementsAre("GetFunctionInfo(F1)", "GetCurrentThreadID()",
                                           "GetMethodProps(6000007, buffer of 256) class flags"));
}

TEST_F(ModuleFactsTest, OpensNoMetadataForWriting) {
    EXPECT_FALSE(ask());
    EXPECT_THAT(runtime.calls, Not(Contains(HasSubstr("GetModuleMetaData"))));
}

TEST_F(ModuleFactsTest, AllocatesForTheFirstMethodOnly) {
    runtime.writes_down = false;
    const std::size_t before = testing::allocations();
    EXPECT_FALSE(ask());
    const std::size_t learnt = testing::allocations();
    EXPECT_EQ(learnt, before + 1);
    EXPECT_FALSE(ask());
    EXPECT_EQ(testing::allocations(), learnt);
}

TEST_F(ModuleFactsTest, RulesNothingOutWithoutMemory) {
    {
        const FailingAllocation failing(0);
        runtime.writes_down = false;
        EXPECT_TRUE(ask());
        EXPECT_TRUE(FailingAllocation::has_come());
    }
    EXPECT_FALSE(ask());
}

// --- Names

TEST_F(ModuleFactsTest, PassesNamesOfTheTableAndOfEntryPoints) {
    for (const wchar_t* const name :
         {L"Main", L"<Main>$", L"ExecuteReader", L"CallComplete",
          L"ThreadContext.AssociateWithCurrentThread", L"SqlCommand.ExecuteReader"}) {
        EXPECT_TRUE(ask_about(name)) << name;
    }
    for (const wchar_t* const name : {L"main", L"Main$", L"Reader", L"executeReader",
                                      L"ExecuteReader2", L".ctor", L"mmand.ExecuteReader", L"."}) {
        EXPECT_FALSE(ask_about(name)) << name;
    }
}

TEST_F(ModuleFactsTest, PassesNamesOfRowsThatASwitchAdds) {
    EXPECT_FALSE(ask_about(L"CallAppenders"));
    EXPECT_FALSE(ask_about(L".ctor"));
    target_methods.clear();
    build_target_methods({true, true, true});
    EXPECT_TRUE(ask_about(L"CallAppenders"));
    EXPECT_TRUE(ask_about(L".ctor")); // of MessageTemplateTextFormatter
}

// What the name of a row can be divided into, and what is near to that.
TEST_F(ModuleFactsTest, PassesWhateverNameARowCanHave) {
    for (const TargetMethod& row : target_methods) {
        for (std::size_t dot = row.name.find(L'.'); dot != std::wstring_view::npos;
             dot = row.name.find(L'.', dot + 1)) {
            const std::wstring_view type = row.name.substr(0, dot);
            const std::wstring_view method = row.name.substr(dot + 1);
            EXPECT_TRUE(can_be_chosen_by_name(method));
            EXPECT_TRUE(row.parameter_types || is_target_method({type, method}));
        }
    }
}

TEST_F(ModuleFactsTest, PassesNamesThatAreTooLongToLookAt) {
    EXPECT_FALSE(ask_about(std::wstring(255, L'n').c_str()));
    EXPECT_TRUE(ask_about(std::wstring(256, L'n').c_str()));
}

// --- Attributes

TEST_F(ModuleFactsTest, LooksForAnAttributeThatTheModuleCanName) {
    for (const wchar_t* const attribute : {kTrace, kTransparent}) {
        for (auto* const types : {&runtime.type_defs, &runtime.type_refs}) {
            types->emplace_back(attribute);
            EXPECT_FALSE(ask());
            runtime.attributes = {{FakeMethod::kMethodToken, attribute}};
            EXPECT_TRUE(ask());
            runtime.attributes.clear();
            types->pop_back();
            forget_module_facts(FakeMethod::kModule);
        }
    }
}

TEST_F(ModuleFactsTest, LooksForNoAttributeThatTheModuleCannotName) {
    for (const wchar_t* const other :
         {L"TraceAttribute", L"Corvane.Instrumentation.TraceAttributes",
          L"Corvane.Instrumentation.TraceAttribut", L"corvane.Instrumentation.TraceAttribute"}) {
        runtime.type_refs.emplace_back(other);
    }
    runtime.type_refs.emplace_back(std::wstring(500, L'n'));
    EXPECT_FALSE(ask());
    runtime.forget_calls();
    EXPECT_FALSE(ask());
    EXPECT_THAT(runtime.calls, Not(Contains(HasSubstr("GetCustomAttributeByName"))));
}

TEST_F(ModuleFactsTest, FollowsMetadataThatGrows) {
    EXPECT_FALSE(ask());
    runtime.attributes = {{FakeMethod::kMethodToken, kTrace}};
    EXPECT_FALSE(ask()); // it cannot be there yet
    runtime.type_refs.emplace_back(L"System.String");
    runtime.forget_calls();
    EXPECT_FALSE(ask());
    EXPECT_THAT(runtime.calls, Contains("GetTypeRefProps(1000003, buffer of 64)"));
    EXPECT_THAT(runtime.calls, Not(Contains(HasSubstr("GetTypeDefProps"))));
    runtime.type_refs.emplace_back(kTrace);
    EXPECT_TRUE(ask());
}

TEST_F(ModuleFactsTest, DescribesEveryMethodOfATransparentAssembly) {
    runtime.attributes = {{FakeMethod::kAssemblyToken, kTransparent}};
    EXPECT_TRUE(ask());
    EXPECT_TRUE(ask());
}

// --- Modules of which nothing is known

TEST_F(ModuleFactsTest, DescribesEveryMethodThatIsMadeAtRunTime) {
    runtime.module_flags = COR_PRF_MODULE_DYNAMIC | COR_PRF_MODULE_COLLECTIBLE;
    EXPECT_TRUE(ask());
    EXPECT_TRUE(ask());
}

TEST_F(ModuleFactsTest, KnowsCollectibleModules) {
    runtime.module_flags = COR_PRF_MODULE_DISK | COR_PRF_MODULE_COLLECTIBLE;
    EXPECT_FALSE(ask());
}

TEST_F(ModuleFactsTest, DescribesEveryMethodOnARuntimeThatGivesNoFlags) {
    runtime.has_info3 = false;
    EXPECT_TRUE(ask());
    EXPECT_TRUE(ask());
}

TEST_F(ModuleFactsTest, DescribesEveryMethodOfAModuleWithoutMetadata) {
    runtime.has_metadata = false;
    EXPECT_TRUE(ask());
    EXPECT_TRUE(ask());
}

TEST_F(ModuleFactsTest, ForgetsAModuleThatIsUnloaded) {
    EXPECT_FALSE(ask());
    forget_module_facts(FakeMethod::kModule);
    EXPECT_EQ(runtime.metadata_references, 1U);
    // Another one gets its id.
    runtime.attributes = {{FakeMethod::kMethodToken, kTrace}};
    runtime.type_refs = {kTrace};
    EXPECT_TRUE(ask());
}

TEST_F(ModuleFactsTest, ForgetsNoOtherModule) {
    EXPECT_FALSE(ask());
    for (ModuleID module = 1; module <= 1000; ++module) { // whose lists are all there are
        if (module != FakeMethod::kModule) {
            forget_module_facts(module);
        }
    }
    runtime.forget_calls();
    EXPECT_FALSE(ask());
    EXPECT_EQ(runtime.calls.size(), 3U);
}

// --- Failing calls

// The lines about a method that is compiled, and then looked for.
std::wstring lines_about(FakeMethod& runtime, bool asks_first) {
    const DebugOutput output;
    runtime.forget_calls();
    const auto is_described = [&] {
        return !asks_first || needs_description(&runtime, FakeMethod::kFunction);
    };
    if (is_described()) {
        on_jit_compilation_started(&runtime, FakeMethod::kFunction, {}, nullptr);
    }
    BOOL use = TRUE;
    if (is_described()) {
        on_cached_function_search_started(&runtime, FakeMethod::kFunction, {}, &use);
    }
    EXPECT_EQ(use, TRUE);
    return output.text();
}

class FailingCall : public ModuleFactsTest, public ::testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(Calls, FailingCall,
                         ::testing::Values("GetTokenAndMetaDataFromFunction", "GetMethodProps",
                                           "GetCustomAttributeByName(6000007, Corvane",
                                           "GetCustomAttributeByName(6000007, System",
                                           "GetCustomAttributeByName(20000001", "GetTypeDefProps",
                                           "GetTypeDefProps(2000003", "GetFunctionInfo",
                                           "GetModuleInfo(", "GetModuleInfo(B1, buffer",
                                           "GetAssemblyInfo", "GetAssemblyInfo(A1, buffer",
                                           "QueryInterface", "GetAssemblyFromScope",
                                           "GetCurrentThreadID",
                                           // What is asked for the facts alone.
                                           "GetModuleInfo2", "GetTypeRefProps"));

TEST_P(FailingCall, LeadsToTheSameLinesAtEveryMethod) {
    runtime.type_refs.emplace_back(kTrace);
    runtime.type_refs.emplace_back(kTransparent);
    runtime.failing = GetParam();
    const std::wstring expected = lines_about(runtime, false);
    for (int method = 0; method < 3; ++method) {
        EXPECT_EQ(lines_about(runtime, true), expected) << method;
    }
}

// Of one method, after others whose calls succeeded. Only what was asked about the module as a
// whole and succeeded is not asked again.
TEST_P(FailingCall, LeadsToTheSameLinesAtALaterMethodUnlessItIsAboutTheModule) {
    runtime.type_refs.emplace_back(kTrace);
    runtime.failing = GetParam();
    const std::wstring failed = lines_about(runtime, false);
    runtime.failing = "-";
    EXPECT_EQ(lines_about(runtime, true), L"");
    runtime.failing = GetParam();
    const std::string call = runtime.failing;
    const bool is_about_the_method =
        call == "GetFunctionInfo" || call == "GetMethodProps" || call == "GetCurrentThreadID";
    EXPECT_EQ(lines_about(runtime, true), is_about_the_method ? failed : L"");
}

// --- Threads

// The module goes while the runtime answers.
class Unloading : public ModuleFactsTest {
protected:
    void expect_to_wait_for(const std::string& during) {
        std::atomic<bool> has_gone = false;
        std::jthread unloading;
        runtime.on_call = [&] {
            if (!unloading.joinable() && !runtime.calls.empty() &&
                runtime.calls.back().starts_with(during)) {
                unloading = std::jthread([&] {
                    forget_module_facts(FakeMethod::kModule);
                    has_gone = true;
                });
                Sleep(50);
                EXPECT_FALSE(has_gone);
            }
        };
        ask();
        ASSERT_TRUE(unloading.joinable()) << during;
        unloading.join();
        EXPECT_TRUE(has_gone);
        EXPECT_EQ(runtime.metadata_references, 1U);
        runtime.on_call = [] {};
        runtime.forget_calls();
    }
};

TEST_F(Unloading, WaitsForThoseWhoLearn) {
    expect_to_wait_for("GetModuleInfo2");
    expect_to_wait_for("GetTypeDefProps");
    EXPECT_FALSE(ask());
    EXPECT_THAT(runtime.calls, Contains("GetModuleInfo2(B1)")); // nothing was kept
}

TEST_F(Unloading, WaitsForThoseWhoUseWhatIsKnown) {
    runtime.type_refs.emplace_back(kTrace);
    EXPECT_FALSE(ask());
    expect_to_wait_for("GetMethodProps");
}

// Modules by the hundred, which all threads meet at once; a thread unloads them again and again.
class ManyModules final : public testing::FailingRuntime {
public:
    static constexpr ModuleID kModules = 300;
    std::atomic<int> references = 0; // of the metadata
    std::atomic<int> wrong = 0;      // uses of metadata that nobody holds

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
        *object = static_cast<ICorProfilerInfo3*>(this);
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE GetFunctionInfo(FunctionID function, ClassID*, ModuleID* module,
                                              mdToken* token) override {
        *module = function * 16;
        *token = mdtMethodDef | 1;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetCurrentThreadID(ThreadID*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetModuleInfo2(ModuleID, LPCBYTE*, ULONG, ULONG*, WCHAR*, AssemblyID*,
                                             DWORD* flags) override {
        *flags = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetModuleInfo(ModuleID, LPCBYTE*, ULONG capacity, ULONG* length,
                                            WCHAR* name, AssemblyID*) override {
        testing::give_name(L"m", capacity, length, name);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTokenAndMetaDataFromFunction(FunctionID, REFIID,
                                                              IUnknown** metadata,
                                                              mdToken*) override {
        ++references;
        *metadata = static_cast<IMetaDataImport*>(&metadata_);
        return S_OK;
    }

private:
    class Metadata final : public testing::FailingMetadata {
    public:
        explicit Metadata(ManyModules& all) : all_(all) {}
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
            AddRef();
            *object = static_cast<IMetaDataAssemblyImport*>(this);
            return S_OK;
        }
        ULONG STDMETHODCALLTYPE AddRef() override { return ++all_.references, 2; }
        ULONG STDMETHODCALLTYPE Release() override { return --all_.references, 1; }
        HRESULT STDMETHODCALLTYPE GetCustomAttributeByName(mdToken, LPCWSTR, const void**,
                                                           ULONG*) override {
            return S_FALSE;
        }
        HRESULT STDMETHODCALLTYPE GetMethodProps(mdMethodDef, mdTypeDef*, LPWSTR name,
                                                 ULONG capacity, ULONG* length, DWORD*,
                                                 PCCOR_SIGNATURE*, ULONG*, ULONG*,
                                                 DWORD*) override {
            if (all_.references <= 0) {
                ++all_.wrong;
            }
            testing::give_name(L"Ordinary", capacity, length, name);
            return S_OK;
        }

    private:
        ManyModules& all_;
    };
    Metadata metadata_{*this};
};

TEST(ManyModulesTest, AreLearntAndForgottenOnManyThreads) {
    build_target_methods({});
    ManyModules runtime;
    std::atomic<int> passed = 0;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                for (int round = 0; round < 30; ++round) {
                    for (FunctionID function = 1; function <= ManyModules::kModules; ++function) {
                        passed += needs_description(&runtime, function) ? 1 : 0;
                    }
                }
            });
        }
        threads.emplace_back([&] {
            for (int round = 0; round < 30; ++round) {
                for (ModuleID module = 1; module <= ManyModules::kModules; ++module) {
                    forget_module_facts(module * 16);
                }
            }
        });
    }
    EXPECT_EQ(passed, 0);
    EXPECT_EQ(runtime.wrong, 0);
    EXPECT_LE(runtime.references, static_cast<int>(ManyModules::kModules)); // one for each, at most
    for (ModuleID module = 1; module <= ManyModules::kModules; ++module) {
        forget_module_facts(module * 16);
    }
    EXPECT_EQ(runtime.references, 0);
    target_methods.clear();
}

} // namespace
} // namespace corvane
