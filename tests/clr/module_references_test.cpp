// The references that injected code needs, in the metadata of the runtime's own engine.
#include "base/runtime_state.h"
#include "rewrite/references/known_references.h"
#include "rewrite/references/managed_library.h"
#include "tests/support/failing_metadata.h"
#include "tests/support/runtime_test.h"
#include "tests/support/scratch_module_test.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cwchar>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>

namespace corvane::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

const Bytes kVoid = {0x00, 0x00, 0x01};
const Bytes kReturn = {0x06, 0x2A};

class ModuleReferencesTest : public ScratchModuleTest {
protected:
    mdMethodDef method() { return add(L"Place", kVoid, kReturn); }
};

TEST_F(ModuleReferencesTest, AreDefinedInTheirOrder) {
    fill_type_refs();
    const mdMethodDef token = method();
    EXPECT_EQ(instrument(token), S_OK);
    EXPECT_EQ(module->installations, 1);
    std::vector<std::string> calls = module->metadata_calls;
    calls.resize(26); // behind them comes the rewriting
    // Assemblies 23000002 and 23000003 are kite.managed and mscorlib, types 0100002A and on are
    // System.Exception, System.Object, InstrumentationDirectives, MethodArgumentCallback,
    // kite.managed.span, Invokers and MethodBase.
    EXPECT_THAT(
        calls,
        ElementsAre(
            "GetModuleMetaData flags 1", "QueryInterface IMetaDataAssemblyEmit",
            "GetModuleMetaData flags 0",
            "DefineAssemblyRef kite.managed 3.9.0.0 key C9 CA 73 58 77 97 B1 08 locale 0 hash 0 "
            "flags 0",
            "DefineAssemblyRef mscorlib 2.0.0.0 key B7 7A 5C 56 19 34 E0 89 locale 0 hash 0 flags "
            "0",
            "DefineTypeRefByName 23000003 System.Exception",
            "DefineTypeRefByName 23000003 System.Object",
            "DefineTypeRefByName 23000002 Corvane.Instrumentation.InstrumentationDirectives",
            "DefineTypeRefByName 23000002 Corvane.Instrumentation.MethodArgumentCallback",
            "DefineTypeRefByName 23000002 kite.managed.span",
            "DefineTypeRefByName 23000002 Corvane.Instrumentation.Invokers",
            "DefineTypeRefByName 23000003 System.Reflection.MethodBase",
            "DefineMemberRef 0100002C .ctor 20 00 01",
            "DefineMemberRef 0100002C GetIndexes 20 00 1D 08",
            "DefineTypeRefByName 23000002 Corvane.Instrumentation.MethodData",
            "DefineAssemblyRef system 2.0.0.0 key B7 7A 5C 56 19 34 E0 89 locale 0 hash 0 flags 0",
            "DefineMemberRef 0100002E Log 00 02 01 08 0E",
            "DefineMemberRef 0100002E Error 00 02 02 0E 12 80 A9", "EnumTypeRefs to count",
            "EnumTypeRefs to read",
            "DefineMemberRef 0100002E GenericPrologue 00 04 01 09 1C 1D 1C 12 80 B1",
            "DefineMemberRef 0100002E GenericEpilogue 00 05 01 09 1C 1D 1C 1C 12 80 B1",
            "DefineMemberRef 0100002F ContainsKey 00 01 02 09",
            "DefineMemberRef 01000030 GetCurrentMethod 00 00 12 80 C1",
            "DefineMemberRef 0100002F RegisterMethod 00 03 01 09 12 80 C1 02",
            "GetModuleMetaData flags 1"));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ModuleReferencesTest, LogTheWalkOverTheTypeReferences) {
    const mdMethodDef token = method();
    instrument(token);
    EXPECT_THAT(std::wstring(output.text()),
                HasSubstr(L"[tag] ===============================\n"
                          L"[tag] TRAVERSING TYPE System.Object \r\n\n"
                          L"[tag] TRAVERSING TYPE System.Exception \r\n\n"
                          L"[tag] TRAVERSING TYPE System.Object \r\n\n"
                          L"[tag] TRAVERSING TYPE Corvane.Instrumentation."
                          L"InstrumentationDirectives \r\n\n"
                          L"[tag] TRAVERSING TYPE Corvane.Instrumentation."
                          L"MethodArgumentCallback \r\n\n"
                          L"[tag] TRAVERSING TYPE kite.managed.span \r\n\n"
                          L"[tag] TRAVERSING TYPE Corvane.Instrumentation.Invokers \r\n\n"
                          L"[tag] TRAVERSING TYPE System.Reflection.MethodBase \r\n\n"));
}

TEST_F(ModuleReferencesTest, AreSharedByTheMethodsOfAModule) {
    fill_type_refs();
    const mdMethodDef first = method();
    const mdMethodDef second = add(L"Cancel", kVoid, kReturn);
    EXPECT_EQ(instrument(first), S_OK);
    const auto types = module->type_ref_names();
    const auto assemblies = module->assembly_ref_names();
    EXPECT_EQ(instrument(second), META_S_DUPLICATE); // of the last reference
    EXPECT_EQ(module->installations, 2);
    EXPECT_EQ(module->type_ref_names(), types);
    EXPECT_EQ(module->assembly_ref_names(), assemblies);
    EXPECT_THAT(assemblies,
                ElementsAre(L"System.Runtime", L"kite.managed", L"mscorlib", L"system"));
    EXPECT_FALSE(module->import().IsValidToken(mdtMemberRef + 10)); // nine members in all
    EXPECT_TRUE(module->import().IsValidToken(mdtMemberRef + 9));
    EXPECT_THAT(module->metadata_calls,
                ::testing::Not(::testing::Contains(HasSubstr("DefineAssemblyRef"))));
}

TEST_F(ModuleReferencesTest, ReuseOnlyTheSameAssembly) {
    // Other versions and keys of the same name are other assemblies.
    module->assembly_ref(L"kite.managed");
    module->assembly_ref(L"mscorlib");
    fill_type_refs();
    instrument(method());
    EXPECT_THAT(module->assembly_ref_names(),
                ElementsAre(L"System.Runtime", L"kite.managed", L"mscorlib", L"kite.managed",
                            L"mscorlib", L"system"));
}

struct Difference {
    const char* name;
    std::wstring locale;
    Bytes hash;
    DWORD flags;
};

class ModuleReferencesBeside : public ModuleReferencesTest,
                               public ::testing::WithParamInterface<Difference> {};

INSTANTIATE_TEST_SUITE_P(Differences, ModuleReferencesBeside,
                         ::testing::Values(Difference{"Locale", L"de", {}, 0},
                                           Difference{"Hash", L"", {1, 2, 3}, 0},
                                           Difference{"Flags", L"", {}, afRetargetable},
                                           Difference{"None", L"", {}, 0}),
                         [](const auto& row) { return row.param.name; });

// Name, version and key are the same.
TEST_P(ModuleReferencesBeside, ReuseWhatDiffersInNothing) {
    fill_type_refs();
    ComPtr<IMetaDataAssemblyEmit> emit;
    ASSERT_EQ(module->emit().QueryInterface(__uuidof(IMetaDataAssemblyEmit), emit.put_void()),
              S_OK);
    std::wstring locale = GetParam().locale;
    ASSEMBLYMETADATA data{};
    data.usMajorVersion = 3;
    data.usMinorVersion = 9;
    data.szLocale = locale.empty() ? nullptr : locale.data();
    data.cbLocale = locale.empty() ? 0 : static_cast<ULONG>(locale.size() + 1);
    const Bytes& hash = GetParam().hash;
    mdAssemblyRef there = mdAssemblyRefNil;
    ASSERT_EQ(emit->DefineAssemblyRef(kManagedLibrary.public_key_token.data(),
                                      static_cast<ULONG>(kManagedLibrary.public_key_token.size()),
                                      L"kite.managed", &data, hash.empty() ? nullptr : hash.data(),
                                      static_cast<ULONG>(hash.size()), GetParam().flags, &there),
              S_OK);
    instrument(method());
    EXPECT_EQ(module->installations, 1);
    const auto names = module->assembly_ref_names();
    EXPECT_EQ(std::ranges::count(names, L"kite.managed"),
              GetParam().name == std::string("None") ? 1 : 2);
}

// They are asked for and made in one step: of two methods that are compiled at once the second
// finds what the first has made.
TEST_F(ModuleReferencesTest, AreDefinedOnceByTwoThreads) {
    class Slow final : public FailingEmit, public FailingMetadata {
    public:
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
            *object = static_cast<IMetaDataAssemblyImport*>(this);
            return S_OK;
        }
        ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
        ULONG STDMETHODCALLTYPE Release() override { return 1; }
        HRESULT STDMETHODCALLTYPE EnumAssemblyRefs(HCORENUM* list, mdAssemblyRef* assembly, ULONG,
                                                   ULONG* count) override {
            *count = *list == nullptr ? static_cast<ULONG>(defined) : 0;
            *list = this;
            *assembly = mdtAssemblyRef + 1;
            return *count != 0 ? S_OK : S_FALSE;
        }
        HRESULT STDMETHODCALLTYPE GetAssemblyRefProps(mdAssemblyRef, const void** key,
                                                      ULONG* key_size, LPWSTR name, ULONG, ULONG*,
                                                      ASSEMBLYMETADATA* data, const void**, ULONG*,
                                                      DWORD*) override {
            *key = kManagedLibrary.public_key_token.data();
            *key_size = static_cast<ULONG>(kManagedLibrary.public_key_token.size());
            std::wcscpy(name, kManagedLibrary.name);
            data->usMajorVersion = kManagedLibrary.version[0];
            data->usMinorVersion = kManagedLibrary.version[1];
            return S_OK;
        }
        HRESULT STDMETHODCALLTYPE DefineAssemblyRef(const void*, ULONG, LPCWSTR,
                                                    const ASSEMBLYMETADATA*, const void*, ULONG,
                                                    DWORD, mdAssemblyRef* assembly) override {
            *assembly = mdtAssemblyRef + 1;
            std::exchange(on_define, [] {})();
            ++defined;
            return S_OK;
        }
        std::function<void()> on_define = [] {};
        std::atomic<int> defined = 0;
    } slow;
    std::jthread second;
    std::atomic<bool> is_back = false;
    slow.on_define = [&] {
        second = std::jthread([&] {
            mdAssemblyRef assembly = mdAssemblyRefNil;
            EXPECT_EQ(define_assembly_ref_once(&slow, kManagedLibrary, assembly), S_OK);
            EXPECT_EQ(assembly, mdtAssemblyRef + 1U);
            is_back = true;
        });
        Sleep(200);
        EXPECT_FALSE(is_back);
    };
    mdAssemblyRef assembly = mdAssemblyRefNil;
    EXPECT_EQ(define_assembly_ref_once(&slow, kManagedLibrary, assembly), S_OK);
    second.join();
    EXPECT_EQ(slow.defined, 1);
}

// The callback's interface reads; the other one, which may be another object, does all the rest.
TEST_F(ModuleReferencesTest, AreReadThroughTheContextsInterface) {
    class Reading final : public FailingRuntime {
    public:
        explicit Reading(ScratchModule& module) : module_(module) {}
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
        ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
        ULONG STDMETHODCALLTYPE Release() override { return 1; }
        HRESULT STDMETHODCALLTYPE GetModuleMetaData(ModuleID asked, DWORD flags, REFIID iid,
                                                    IUnknown** metadata) override {
            calls.emplace_back("GetModuleMetaData " + std::to_string(flags));
            return module_.GetModuleMetaData(asked, flags, iid, metadata);
        }

    private:
        ScratchModule& module_;
    } reading(*module);
    fill_type_refs();
    const mdMethodDef token = method();
    forget_left_methods(ScratchModule::kModule);
    EXPECT_EQ(compile(token, InstrumentationMode::kAttribute, &reading), S_OK);
    EXPECT_EQ(module->installations, 1);
    EXPECT_THAT(reading.calls, ElementsAre("GetModuleMetaData 0"));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ModuleReferencesTest, TakeTheMethodBaseThatTheModuleNamesFirst) {
    const mdTypeRef own = module->type_ref(corlib, L"System.Reflection.MethodBase");
    ASSERT_EQ(own, 0x01000002U);
    fill_type_refs();
    EXPECT_EQ(instrument(method()), S_OK);
    EXPECT_THAT(module->member_signature(L"GetCurrentMethod"),
                ElementsAre(0x00, 0x00, 0x12, 0x09, 0x00));
    EXPECT_EQ(module->installations, 0); // its row is too low for RegisterMethod's signature
    EXPECT_THAT(log().back(), ::testing::StartsWith(L"Left as it is: Invokers.RegisterMethod"));
}

TEST_F(ModuleReferencesTest, MatchTheWholeNameOfMethodBase) {
    module->type_ref(corlib, L"System.Reflection.MethodBas");
    module->type_ref(corlib, L"System.Reflection.MethodBase2");
    module->type_ref(corlib, L"system.reflection.methodbase");
    fill_type_refs();
    EXPECT_EQ(instrument(method()), S_OK);
    // Row 0x33, behind 4 types of the module's own, 40 fillers and six of ours.
    EXPECT_THAT(module->member_signature(L"GetCurrentMethod"),
                ElementsAre(0x00, 0x00, 0x12, 0x80, 0xCD));
}

TEST_F(ModuleReferencesTest, KeepTheirLengthInASmallModule) {
    EXPECT_EQ(instrument(method()), S_OK);
    EXPECT_THAT(module->member_signature(L"Error"),
                ElementsAre(0x00, 0x02, 0x02, 0x0E, 0x12, 0x09, 0x00));
    EXPECT_THAT(module->member_signature(L"GenericPrologue"),
                ElementsAre(0x00, 0x04, 0x01, 0x09, 0x1C, 0x1D, 0x1C, 0x12, 0x11, 0x00));
    EXPECT_THAT(module->member_signature(L"RegisterMethod"),
                ElementsAre(0x00, 0x03, 0x01, 0x09, 0x12, 0x21, 0x00, 0x02));
    // That one names no method.
    EXPECT_EQ(module->installations, 0);
    EXPECT_THAT(log(), ElementsAre(L"Left as it is: Invokers.RegisterMethod cannot be referred to "
                                   L"in a module with so few or so many type references; "
                                   L"CORVANE_STRICT_IL=1 can"));
    EXPECT_EQ(instrumentation_index, 1U);
}

// From row 26 to 31 the exception takes one byte, so that its signature is padded, and MethodBase,
// six rows behind it, takes two, so that it can be referred to.
TEST_F(ModuleReferencesTest, ArePaddedForAnExceptionInALowRow) {
    for (std::uint8_t row = 25; row <= 32; ++row) {
        SetUp();
        fill_type_refs(row - 2U); // and System.Object
        const mdMethodDef token = method();
        EXPECT_EQ(instrument(token), S_OK);
        ASSERT_EQ(module->type_ref_names().at(row - 1U), L"System.Exception");
        const auto padded = [](Bytes signature, unsigned type_row, std::size_t room) {
            const unsigned value = type_row << 2 | 1;
            if (value >= 0x80) {
                signature.push_back(static_cast<std::uint8_t>(value >> 8 | 0x80));
            }
            signature.push_back(static_cast<std::uint8_t>(value));
            signature.resize(room);
            return signature;
        };
        EXPECT_EQ(module->member_signature(L"Error"),
                  padded({0x00, 0x02, 0x02, 0x0E, 0x12}, row, 7));
        EXPECT_EQ(module->member_signature(L"GenericPrologue"),
                  padded({0x00, 0x04, 0x01, 0x09, 0x1C, 0x1D, 0x1C, 0x12}, row + 2U, 10));
        EXPECT_EQ(module->member_signature(L"GenericEpilogue"),
                  padded({0x00, 0x05, 0x01, 0x09, 0x1C, 0x1D, 0x1C, 0x1C, 0x12}, row + 2U, 11));
        EXPECT_EQ(module->member_signature(L"GetCurrentMethod"),
                  padded({0x00, 0x00, 0x12}, row + 6U, 5));
        EXPECT_EQ(module->installations, row >= 26 ? 1 : 0) << unsigned{row};
        module.reset();
    }
}

TEST_F(ModuleReferencesTest, AreExactInASmallModuleInStrictIl) {
    strict_il = true;
    EXPECT_EQ(instrument(method()), S_OK);
    EXPECT_THAT(module->member_signature(L"Error"),
                ElementsAre(0x00, 0x02, 0x02, 0x0E, 0x12, 0x09));
    EXPECT_THAT(module->member_signature(L"GenericPrologue"),
                ElementsAre(0x00, 0x04, 0x01, 0x09, 0x1C, 0x1D, 0x1C, 0x12, 0x11));
    EXPECT_THAT(module->member_signature(L"GenericEpilogue"),
                ElementsAre(0x00, 0x05, 0x01, 0x09, 0x1C, 0x1D, 0x1C, 0x1C, 0x12, 0x11));
    EXPECT_THAT(module->member_signature(L"GetCurrentMethod"), ElementsAre(0x00, 0x00, 0x12, 0x21));
    EXPECT_THAT(module->member_signature(L"RegisterMethod"),
                ElementsAre(0x00, 0x03, 0x01, 0x09, 0x12, 0x21, 0x02));
    EXPECT_THAT(module->member_signature(L"HasListeners"), ElementsAre(0x00, 0x00, 0x02));
    EXPECT_THAT(module->member_signature(L"IndexOf"),
                ElementsAre(0x10, 0x01, 0x02, 0x08, 0x1D, 0x1E, 0x00, 0x1E, 0x00));
    EXPECT_EQ(module->installations, 1);
}

TEST_F(ModuleReferencesTest, StopWhereDirectivesDoNotFitTheirSignature) {
    fill_type_refs(4095 - 3); // InstrumentationDirectives gets row 4,096, System.Exception 4,094
    EXPECT_EQ(instrument(method()), S_OK);
    EXPECT_THAT(log(), ElementsAre(L"Failed to compress token for "
                                   L"Corvane.Instrumentation.InstrumentationDirectives type. Token "
                                   L"size is bigger than expected."));
    EXPECT_EQ(module->installations, 0);
    EXPECT_THAT(module->member_signature(L"Log"), ElementsAre(0x00, 0x02, 0x01, 0x08, 0x0E));
    EXPECT_THAT(module->member_signature(L"Error"), IsEmpty());
}

// The module has its assemblies and the directives already; System.Exception gets the next row.
TEST_F(ModuleReferencesTest, StopWhereTheExceptionDoesNotFitItsSignature) {
    for (const auto& [row, fits] : {std::pair{0xFFFU, true}, std::pair{0x1000U, false}}) {
        SetUp();
        const mdMethodDef token = method();
        module->results = {{5, E_FAIL}};
        instrument(token);
        module->results.clear();
        module->type_ref(0x23000002, L"Corvane.Instrumentation.InstrumentationDirectives");
        fill_type_refs(row - 3);
        EXPECT_GE(instrument(token), 0);
        EXPECT_EQ(module->member_signature(L"Error").empty(), !fits);
        EXPECT_EQ(log().back() == L"Failed to compress token for System.Exception type. Token size "
                                  L"is bigger than expected.",
                  !fits);
    }
}

TEST_F(ModuleReferencesTest, FitAnyTokenInStrictIl) {
    strict_il = true;
    fill_type_refs(4096);
    EXPECT_EQ(instrument(method()), S_OK);
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_EQ(module->installations, 1);
    EXPECT_THAT(module->member_signature(L"Error"),
                ElementsAre(0x00, 0x02, 0x02, 0x0E, 0x12, 0xC0, 0x00, 0x40, 0x09));
}

TEST_F(ModuleReferencesTest, CutTheTokenOfAFarMethodBaseInTheDefaultForm) {
    module->results = {{11, E_FAIL}}; // all the types but MethodBase
    const mdMethodDef token = method();
    instrument(token);
    module->results.clear();
    fill_type_refs(4096);
    EXPECT_EQ(instrument(token), S_OK);
    EXPECT_THAT(module->member_signature(L"GetCurrentMethod"),
                ElementsAre(0x00, 0x00, 0x12, 0xC0, 0x00));
    EXPECT_THAT(module->member_signature(L"RegisterMethod"),
                ElementsAre(0x00, 0x03, 0x01, 0x09, 0x12, 0xC0, 0x00, 0x02));
    EXPECT_EQ(module->installations, 0);
    EXPECT_THAT(log().back(), ::testing::StartsWith(L"Left as it is: Invokers.RegisterMethod"));
}

struct FailureRow {
    std::size_t call;
    const wchar_t* message;
};

// In the order of the calls; see AreDefinedInTheirOrder.
const FailureRow kFailures[] = {
    {0, L"Failed to get module metadata interface (%)"},
    {1, L"Failed to query IMetaDataAssemblyEmit interface (%)"},
    {2, L"Failed to get module metadata interface (%)"},
    {3, L"Failed to query module token (%)"},
    {4, L"Failed to query module token (%)"},
    {5, L"Failed to get kite.managed.span class reference (%)"},
    {6, L"Failed to get System.Object class reference (%)"},
    {7, L"Failed to get Corvane.Instrumentation.InstrumentationDirectives class reference (%)"},
    {8, L"Failed to get Corvane.Instrumentation.MethodArgumentCallback class reference (%)"},
    {9, L"Failed to get kite.managed.span class reference (%)"},
    {10, L"Failed to get Corvane.Instrumentation.Invokers class reference (%)"},
    {11, L"Failed to get System.Reflection.MethodBase class reference (%)"},
    {12, L"Failed to get Corvane.Instrumentation.InstrumentationDirectives::ctor() construction "
         L"method reference (%)"},
    {13, L"Failed to get Corvane.Instrumentation.InstrumentationDirectives::GetIndexes() method "
         L"reference (%)"},
    {14, L"Failed to get Corvane.Instrumentation.MethodData class reference (%)"},
    {15, L"Failed to query module token of System.dll  Version=4.0.0.0, Culture=neutral, "
         L"PublicKeyToken=b77a5c561934e089) (%)"},
    {16, L"Failed to get System.Diagnostics.Trace::WriteLine(string message) method reference (%)"},
    {17, L"Failed to get span::Error() method reference (%)"},
    {18, L"Failed to get token for System.Reflection.MethodBase type (%)"},
    {19, L"Failed to get token for System.Reflection.MethodBase type (%)"},
    {20, L"Failed to get span::GenericPrologue() method reference (%)"},
    {21, L"Failed to get span::GenericEpilogue() method reference (%)"},
    {22, L"Failed to get Corvane.Instrumentation.Invokers::ContainsKey() method reference (%)"},
    {23, L"Failed to get System.Reflection.MethodBase::GetCurrentMethod() method reference (%)"},
    {24, L"Failed to get Corvane.Instrumentation.Invokers::Register_Method() method reference (%)"},
};

class ModuleReferenceFailure : public ModuleReferencesTest,
                               public ::testing::WithParamInterface<FailureRow> {};

INSTANTIATE_TEST_SUITE_P(Calls, ModuleReferenceFailure, ::testing::ValuesIn(kFailures),
                         [](const auto& row) { return "Call" + std::to_string(row.param.call); });

TEST_P(ModuleReferenceFailure, IsLoggedAndStopsAll) {
    const mdMethodDef token = method();
    module->results = {{GetParam().call, E_ACCESSDENIED}};
    EXPECT_EQ(instrument(token), E_ACCESSDENIED);
    EXPECT_EQ(module->metadata_calls.size(), GetParam().call + 1);
    EXPECT_EQ(module->installations, 0);
    EXPECT_EQ(module->bodies[token], kReturn);
    EXPECT_EQ(instrumentation_index, 0U);

    std::wstring message = GetParam().message;
    message.replace(message.find(L'%'), 1, hresult_text(E_ACCESSDENIED).c_str());
    std::vector<std::wstring> expected = {message};
    if (message.starts_with(L"Failed to get token")) {
        expected.insert(expected.begin(),
                        L"Failed to get type references for type System.Reflection.MethodBase");
    }
    EXPECT_THAT(log(), ElementsAreArray(expected));
}

TEST_F(ModuleReferencesTest, AreNotDefinedWithoutTheManagedLibrary) {
    fill_type_refs();
    const mdMethodDef token = method();
    module->runtime_type = COR_PRF_CORE_CLR;
    EXPECT_EQ(instrument(token), S_OK);
    EXPECT_EQ(module->metadata_calls.size(), 3U); // the metadata is opened
    EXPECT_EQ(module->installations, 0);
    EXPECT_THAT(log(), ElementsAre(L"Left as it is: kite.managed is not loaded; name its file in "
                                   L"DOTNET_STARTUP_HOOKS"));

    managedLibraryLoaded = true;
    EXPECT_EQ(instrument(token), S_OK);
    managedLibraryLoaded = false;
    EXPECT_EQ(module->installations, 1);
}

TEST_F(ModuleReferencesTest, AreDefinedForAModuleThatWasCompiledAgainstTheLibraryBesideIt) {
    const OwnFolder folder;
    module_name = (folder.path() / L"Shop.dll").wstring();
    fill_type_refs();
    const mdMethodDef token = method();
    module->runtime_type = COR_PRF_CORE_CLR;
    const auto beside = folder.path() / L"kite.managed.dll";
    std::filesystem::copy_file(managed_library(), beside);
    instrument(token);
    EXPECT_EQ(module->installations, 0); // it lies there for others
    module->assembly_ref(L"kite.managed");
    instrument(token);
    EXPECT_EQ(module->installations, 0); // another one of that name
    ComPtr<IMetaDataAssemblyEmit> assembly;
    mdAssemblyRef reference = mdAssemblyRefNil;
    ASSERT_EQ(module->emit().QueryInterface(__uuidof(IMetaDataAssemblyEmit), assembly.put_void()),
              S_OK);
    AssemblyIdentity identity = kManagedLibrary;
    identity.version = {3, 8, 9, 9};
    ASSERT_EQ(define_assembly_ref_once(assembly.get(), identity, reference), S_OK);
    instrument(token);
    EXPECT_EQ(module->installations, 0); // an earlier one
    identity.version = {3, 9, 1, 0};
    ASSERT_EQ(define_assembly_ref_once(assembly.get(), identity, reference), S_OK);
    instrument(token);
    EXPECT_EQ(module->installations, 1);

    const mdMethodDef another = add(L"Cancel", kVoid, kReturn);
    std::filesystem::remove(beside);
    instrument(another);
    EXPECT_EQ(module->installations, 1); // it did not come with the program
}

// A program's library lies beside its module, however the path to that is written; a module that
// has no folder has nothing beside it, whatever lies in the current one.
TEST_F(ModuleReferencesTest, LookForTheLibraryInTheFolderOfTheModuleOnly) {
    const OwnFolder folder;
    std::filesystem::copy_file(managed_library(), folder.path() / L"kite.managed.dll");
    fill_type_refs();
    module->runtime_type = COR_PRF_CORE_CLR;
    ComPtr<IMetaDataAssemblyEmit> assembly;
    mdAssemblyRef reference = mdAssemblyRefNil;
    ASSERT_EQ(module->emit().QueryInterface(__uuidof(IMetaDataAssemblyEmit), assembly.put_void()),
              S_OK);
    ASSERT_EQ(define_assembly_ref_once(assembly.get(), kManagedLibrary, reference), S_OK);

    const std::filesystem::path current = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    module_name = L"Shop.dll";
    instrument(method());
    std::filesystem::current_path(current);
    EXPECT_EQ(module->installations, 0);
    EXPECT_THAT(log(), ElementsAre(L"Left as it is: kite.managed is not loaded; name its file in "
                                   L"DOTNET_STARTUP_HOOKS"));

    std::wstring path = (folder.path() / L"Shop.dll").wstring();
    std::ranges::replace(path, L'\\', L'/');
    module_name = path;
    instrument(add(L"Cancel", kVoid, kReturn));
    EXPECT_EQ(module->installations, 1);
}

TEST_F(ModuleReferencesTest, AreNotDefinedForWhatOnlyHasTheLibrarysName) {
    const OwnFolder folder;
    module_name = (folder.path() / L"Shop.dll").wstring();
    fill_type_refs();
    const mdMethodDef token = method();
    module->runtime_type = COR_PRF_CORE_CLR;
    ComPtr<IMetaDataAssemblyEmit> assembly;
    mdAssemblyRef reference = mdAssemblyRefNil;
    ASSERT_EQ(module->emit().QueryInterface(__uuidof(IMetaDataAssemblyEmit), assembly.put_void()),
              S_OK);
    ASSERT_EQ(define_assembly_ref_once(assembly.get(), kManagedLibrary, reference), S_OK);
    const auto beside = folder.path() / L"kite.managed.dll";
    write_file(beside, "a file");
    instrument(token);
    EXPECT_EQ(module->installations, 0);
    EXPECT_THAT(log(), ElementsAre(L"Left as it is: " + beside.wstring() +
                                   L" cannot be read as an assembly"));
}

TEST_F(ModuleReferencesTest, AreNotTriedAgainForAMethodThatWasLeft) {
    fill_type_refs();
    const mdMethodDef token = method();
    module->runtime_type = COR_PRF_CORE_CLR;
    EXPECT_EQ(instrument(token), S_OK);
    const auto lines = log();
    EXPECT_EQ(method_outcomes(),
              (MethodOutcomes{
                  0, 1, 1, L"kite.managed is not loaded; name its file in DOTNET_STARTUP_HOOKS"}));
    managedLibraryLoaded = true;
    EXPECT_EQ(compile(token), S_OK);
    EXPECT_THAT(module->metadata_calls, IsEmpty());
    EXPECT_EQ(log(), lines);
    // Neither another method of the module nor, once the module is gone, another module's.
    EXPECT_EQ(compile(add(L"Cancel", kVoid, kReturn)), S_OK);
    EXPECT_EQ(module->installations, 1);
    EXPECT_EQ(method_outcomes().instrumented, 1U);
    forget_left_methods(ScratchModule::kModule + 1);
    compile(token);
    EXPECT_EQ(module->installations, 1);
    forget_left_methods(ScratchModule::kModule);
    compile(token);
    EXPECT_EQ(module->installations, 2);
    managedLibraryLoaded = false;
}

// Nobody reads of the walk over the type references, so nobody misses it.
TEST_F(ModuleReferencesTest, AreKnownToTheLaterMethodsOfTheirModule) {
    fill_type_refs();
    constexpr std::uint8_t kOfInt32[] = {0x00, 0x01, 0x01, 0x08};
    const auto method_of_int32 = [&](const wchar_t* name) {
        return add(name, {std::begin(kOfInt32), std::end(kOfInt32)}, kReturn);
    };
    strict_il = true;
    const mdMethodDef first = method_of_int32(L"Place");
    const mdMethodDef second = method_of_int32(L"Cancel");
    const mdMethodDef third = method_of_int32(L"Pay");
    const DebuggerPresence debugger(false);
    { const StartUpLines start_up_is_over; }
    EXPECT_EQ(instrument(first), S_OK);
    const auto calls_for_the_first = module->metadata_calls;
    EXPECT_THAT(calls_for_the_first, Contains(HasSubstr("DefineTypeRefByName")));
    EXPECT_EQ(instrument(second), S_OK);
    EXPECT_THAT(module->metadata_calls, Not(Contains(HasSubstr("TypeRef"))));
    EXPECT_THAT(module->metadata_calls, Not(Contains(HasSubstr("DefineMemberRef"))));
    EXPECT_EQ(module->bodies[second].size(), module->bodies[first].size());
    EXPECT_EQ(output.raw(), L"");

    forget_references(ScratchModule::kModule);
    EXPECT_EQ(instrument(third), META_S_DUPLICATE);
    EXPECT_THAT(module->metadata_calls, Contains(HasSubstr("DefineTypeRefByName")));
    EXPECT_EQ(module->installations, 3);
}

TEST_F(ModuleReferencesTest, AreSearchedForAgainWhereSomebodyReadsOfIt) {
    fill_type_refs();
    EXPECT_EQ(instrument(method()), S_OK);
    EXPECT_EQ(instrument(add(L"Cancel", kVoid, kReturn)), META_S_DUPLICATE);
    EXPECT_THAT(module->metadata_calls, Contains(HasSubstr("DefineTypeRefByName")));
    const std::wstring text = output.text();
    const auto first = text.find(L"TRAVERSING TYPE System.Object");
    ASSERT_NE(first, std::wstring::npos);
    EXPECT_NE(text.find(L"===============================", first), std::wstring::npos);
}

TEST_F(ModuleReferencesTest, SucceedWhereRewritingDoesNot) {
    fill_type_refs();
    const mdMethodDef token = method();
    module->results = {{25, E_ACCESSDENIED}}; // the metadata, for the rewriting
    EXPECT_EQ(instrument(token), S_OK);
    EXPECT_EQ(module->installations, 0);
    EXPECT_THAT(log(), ElementsAre(std::wstring(L"Left as it is (") +
                                   hresult_text(E_ACCESSDENIED).c_str() + L")"));
}

} // namespace
} // namespace corvane::testing
