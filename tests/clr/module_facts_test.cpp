// What is ruled out by the facts about a module, held against the description of every method: over
// all assemblies of the runtime and of libraries, and over modules that are made for it.
#include "selection/module_facts.h"

#include "selection/image_metadata.h"
#include "selection/jit_flow.h"
#include "selection/method_patterns.h"
#include "selection/target_methods.h"
#include "tests/support/debug_output.h"
#include "tests/support/real_methods.h"
#include "tests/support/runtime_test.h"
#include "tests/support/scratch_module.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;

// One engine for all tests: it stays loaded.
IMetaDataDispenserEx* dispenser() {
    static const ComPtr<IMetaDataDispenserEx> engine = [] {
        const auto folder = newest_runtime_folder();
        return folder ? metadata_dispenser(*folder) : ComPtr<IMetaDataDispenserEx>();
    }();
    return engine.get();
}

std::wstring choices; // of the methods that rewriting would get
HRESULT note(RewriteContext&, ICorProfilerInfo*, const method_info& method,
             InstrumentationMode mode) {
    choices += method.type_name;
    choices += L'.';
    choices += method.method_name;
    choices += mode == InstrumentationMode::kTable ? L" table\n" : L" attribute\n";
    return S_OK;
}

// What the callbacks about methods do, and how many methods they describe.
struct Outcome {
    std::wstring choices;
    std::wstring lines;
    std::wstring refused; // precompiled code and inlining, by number of the method
    std::vector<std::wstring> never_matched;
    std::size_t described = 0;
};

struct Configuration : NamedRow {
    LogTraceIdSwitches switches;
    SelectionSettings settings;
    std::wstring patterns;
    double described; // the part of unmarked libraries' methods, at most
};
const Configuration kConfigurations[] = {
    {{"Empty"}, {}, {}, L"", 0.02},
    {{"Strict"}, {}, {false, true}, L"", 0.02},
    // Constructors are described: one is in the table.
    {{"LogTraceIds"}, {true, true, true}, {}, L"", 0.2},
    {{"Transparency"}, {}, {true, true}, L"", 0.02},
    {{"Patterns"},
     {},
     {},
     L"System.Xml.Schema.*; !System.Xml.Schema.*.Equals; Newtonsoft.Json.JsonReader.*; Shapes.*;"
     L"Microsoft.CodeAnalysis.CSharp.*+*.Visit*; Nowhere.*; !Newtonsoft.*; System.String..ctor",
     0.7},
    {{"StrictPatterns"},
     {},
     {false, true},
     L"*.Reserve*; *.Dispose; System.Text.Json.*; *+Enumerator.MoveNext; !System.Text.Json.*.Read*",
     1.0},
    {{"PatternsOfNothing"}, {}, {false, true}, L"Nowhere.*; !System.*", 0.02},
};

Outcome outcome_of(ICorProfilerInfo& runtime, const std::vector<FunctionID>& functions,
                   const Configuration& configuration, bool asks_first) {
    Outcome outcome;
    choices.clear();
    method_patterns = MethodPatterns();
    method_patterns.append(configuration.patterns, [](std::wstring_view pattern, const wchar_t*) {
        ADD_FAILURE() << std::wstring(pattern).c_str();
    });
    const DebugOutput output;
    for (const FunctionID function : functions) {
        if (asks_first && !needs_description(&runtime, function)) {
            continue;
        }
        ++outcome.described;
        BOOL use = TRUE;
        BOOL should_inline = TRUE;
        on_jit_inlining(&runtime, function, configuration.settings, &should_inline);
        on_cached_function_search_started(&runtime, function, configuration.settings, &use);
        on_jit_compilation_started(&runtime, function, configuration.settings, note);
        if (!use || !should_inline) {
            outcome.refused += std::to_wstring(function) + (use ? L" " : L"R ");
            outcome.refused += should_inline ? L"" : L"I ";
        }
    }
    outcome.choices = choices;
    outcome.never_matched = method_patterns.never_matched();
    outcome.lines = output.text();
    return outcome;
}

class EveryMethod : public ::testing::TestWithParam<Configuration> {
protected:
    void SetUp() override {
        if (dispenser() == nullptr) {
            GTEST_SKIP() << "CORVANE_DOTNET_ROOTS names no folder with runtime 10";
        }
        build_target_methods(GetParam().switches);
        default_log = DebugLog(L"", 4);
    }
    ~EveryMethod() override {
        target_methods.clear();
        method_patterns = MethodPatterns();
        default_log = DebugLog();
    }

    struct Counts {
        std::size_t files = 0;
        std::size_t methods = 0;
        std::size_t described = 0;
        std::size_t chosen = 0; // lines about them
    };
    static Counts compare_all(const fs::path& folder) {
        Counts counts;
        for (const auto& entry : fs::directory_iterator(folder)) {
            if (entry.path().extension() != L".dll") {
                continue;
            }
            ComPtr<IMetaDataImport> metadata;
            if (FAILED(dispenser()->OpenScope(entry.path().c_str(), ofRead,
                                              __uuidof(IMetaDataImport), metadata.put_unknown()))) {
                continue; // no assembly
            }
            RealMethods methods(*dispenser(), entry.path());
            const std::vector<FunctionID> functions = methods.with_body();
            const Outcome full = outcome_of(methods, functions, GetParam(), false);
            std::size_t described[2] = {};
            for (const bool by_image : {false, true}) {
                forget_module_facts(RealMethods::kModule);
                methods.gives_image = by_image;
                const Outcome quick = outcome_of(methods, functions, GetParam(), true);
                EXPECT_EQ(quick.choices, full.choices) << entry.path();
                EXPECT_EQ(quick.lines, full.lines) << entry.path();
                EXPECT_EQ(quick.refused, full.refused) << entry.path();
                EXPECT_EQ(quick.never_matched, full.never_matched) << entry.path();
                described[by_image ? 1 : 0] = quick.described;
            }
            EXPECT_EQ(described[0], described[1]) << entry.path();
            ++counts.files;
            counts.methods += functions.size();
            counts.described += described[1];
            counts.chosen += static_cast<std::size_t>(std::ranges::count(full.choices, L'\n'));
        }
        std::cout << counts.files << " assemblies, " << counts.methods << " methods, "
                  << counts.described << " described, " << counts.chosen << " chosen\n";
        return counts;
    }
    static fs::path program(const char* name) {
        return built_file(fs::path(CORVANE_PROGRAMS_FOLDER).make_preferred()) / name;
    }
};
INSTANTIATE_TEST_SUITE_P(Configurations, EveryMethod, ::testing::ValuesIn(kConfigurations),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(EveryMethod, OfTheRuntimeIsDecidedAsByItsDescription) {
    const Counts counts = compare_all(*newest_runtime_folder());
    EXPECT_GT(counts.files, 150U);
    EXPECT_GT(counts.methods, 130'000U);
    EXPECT_LE(static_cast<double>(counts.described),
              GetParam().described * static_cast<double>(counts.methods));
    EXPECT_GT(counts.chosen, 4U);
}

// Hardly any needs a description where nothing is marked, and all do where everything is.
TEST_P(EveryMethod, OfLibrariesIsDecidedAsByItsDescription) {
    const Counts marked = compare_all(program("libraries"));
    EXPECT_GT(marked.chosen, 2'500U);
    const Counts others = compare_all(program("compiler"));
    EXPECT_GT(others.methods, 20'000U);
    EXPECT_LE(static_cast<double>(others.described),
              GetParam().described * static_cast<double>(others.methods));
}

TEST_P(EveryMethod, OfProgramsIsDecidedAsByItsDescription) {
    // One of these assemblies is transparent, another one has transparent methods.
    EXPECT_GT(compare_all(program("selected")).chosen, 15U);
    EXPECT_GT(compare_all(program("table")).chosen, 10U);
}

// --- Images

class Image : public ::testing::Test {
protected:
    void SetUp() override {
        if (dispenser() == nullptr) {
            GTEST_SKIP() << "CORVANE_DOTNET_ROOTS names no folder with runtime 10";
        }
    }
};

TEST_F(Image, SparesTheRuntimeItsMetadataUnlessThatMayChange) {
    build_target_methods({});
    enum { kImage, kNoImage, kHotReload, kHotReloadByItsOldName };
    for (const int way : {kImage, kNoImage, kHotReload, kHotReloadByItsOldName}) {
        SetEnvironmentVariableW(L"DOTNET_MODIFIABLE_ASSEMBLIES",
                                way == kHotReload ? L"debug" : nullptr);
        SetEnvironmentVariableW(L"COMPlus_MODIFIABLE_ASSEMBLIES",
                                way == kHotReloadByItsOldName ? L"debug" : nullptr);
        RealMethods methods(*dispenser(), *newest_runtime_folder() / "System.Private.Xml.dll");
        methods.gives_image = way != kNoImage;
        const FunctionID function = methods.find(L"System.Xml.XmlReader", L"Close");
        ASSERT_NE(function, 0U);
        EXPECT_FALSE(needs_description(&methods, function));
        EXPECT_FALSE(needs_description(&methods, function));
        EXPECT_EQ(methods.opened, way == kImage ? 0 : 1);
    }
    SetEnvironmentVariableW(L"COMPlus_MODIFIABLE_ASSEMBLIES", nullptr);
    target_methods.clear();
}

// With precompiled code and without, for every processor and for one.
TEST_F(Image, HoldsTheSameMetadataInItsFileAndLoaded) {
    const fs::path compiler =
        built_file(fs::path(CORVANE_PROGRAMS_FOLDER).make_preferred()) / "compiler";
    for (const fs::path& file :
         {*newest_runtime_folder() / "System.Private.CoreLib.dll",
          *newest_runtime_folder() / "netstandard.dll", compiler / "compiler.dll",
          compiler / "Microsoft.CodeAnalysis.dll"}) {
        std::ifstream stream(file, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
        const auto flat =
            find_image_metadata(reinterpret_cast<const std::byte*>(bytes.data()), true);
        const HMODULE loaded = LoadLibraryExW(file.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
        ASSERT_NE(loaded, nullptr) << file;
        const auto mapped = find_image_metadata(reinterpret_cast<const std::byte*>(loaded), false);
        EXPECT_GT(flat.size(), 1000U) << file;
        EXPECT_TRUE(std::ranges::equal(flat, mapped)) << file;
        EXPECT_TRUE(open_image_metadata(flat.data(), true).get() == nullptr); // no image
        FreeLibrary(loaded);
    }
}

// --- Modules that are made for it

// A module with methods of no special name, whose function ids are their tokens.
class PlantedModule final : public ScratchModule {
public:
    explicit PlantedModule(IMetaDataDispenserEx& engine) : ScratchModule(engine) {
        ComPtr<IMetaDataAssemblyEmit> assembly_emit;
        emit().QueryInterface(__uuidof(IMetaDataAssemblyEmit), assembly_emit.put_void());
        const ASSEMBLYMETADATA data = {};
        mdAssembly assembly = mdAssemblyNil;
        EXPECT_EQ(assembly_emit->DefineAssembly(nullptr, 0, 0, L"planted", &data, 0, &assembly),
                  S_OK);
    }
    ~PlantedModule() override { forget_module_facts(kModule); }

    HRESULT STDMETHODCALLTYPE GetFunctionInfo(FunctionID function, ClassID*, ModuleID* module,
                                              mdToken* token) override {
        *module = kModule;
        *token = static_cast<mdToken>(function);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTokenAndMetaDataFromFunction(FunctionID function, REFIID iid,
                                                              IUnknown** metadata,
                                                              mdToken* token) override {
        *token = static_cast<mdToken>(function);
        return import().QueryInterface(iid, reinterpret_cast<void**>(metadata));
    }
    HRESULT STDMETHODCALLTYPE GetModuleInfo(ModuleID, LPCBYTE*, ULONG capacity, ULONG* length,
                                            WCHAR* name, AssemblyID*) override {
        give_name(L"planted.dll", capacity, length, name);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetModuleInfo2(ModuleID, LPCBYTE*, ULONG, ULONG*, WCHAR*, AssemblyID*,
                                             DWORD* flags) override { // without an image
        *flags = COR_PRF_MODULE_DISK;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetCurrentThreadID(ThreadID*) override { return S_OK; }
};

const Bytes kNoParameters = {0x20, 0x00, 0x01}; // instance void ()

mdToken constructor_ref(PlantedModule& module, mdToken parent) {
    mdMemberRef member = mdMemberRefNil;
    EXPECT_EQ(module.emit().DefineMemberRef(parent, L".ctor", kNoParameters.data(),
                                            static_cast<ULONG>(kNoParameters.size()), &member),
              S_OK);
    return member;
}

mdTypeDef nested_type(PlantedModule& module, const wchar_t* name) {
    mdTypeDef type = mdTypeDefNil;
    const mdToken base = module.type_ref(module.assembly_ref(L"System.Runtime"), L"System.Object");
    EXPECT_EQ(module.emit().DefineNestedType(name, tdNestedPublic, base, nullptr,
                                             module.type_def(L"Shop.Outer", base), &type),
              S_OK);
    return type;
}

// Where a module can get an attribute's constructor from. Gives its token.
struct Origin : NamedRow {
    std::function<mdToken(PlantedModule& module, const wchar_t* attribute)> constructor;
    bool is_found; // by the query for attributes by name
};
const Origin kOrigins[] = {
    {{"Reference"},
     [](PlantedModule& module, const wchar_t* attribute) {
         return constructor_ref(module,
                                module.type_ref(module.assembly_ref(L"kite.managed"), attribute));
     },
     true},
    {{"ReferenceWithoutScope"},
     [](PlantedModule& module, const wchar_t* attribute) {
         return constructor_ref(module, module.type_ref(mdTokenNil, attribute));
     },
     true},
    {{"NestedReference"},
     [](PlantedModule& module, const wchar_t* attribute) {
         const mdToken outer = module.type_ref(module.assembly_ref(L"kite.managed"), L"Outer");
         return constructor_ref(module, module.type_ref(outer, attribute));
     },
     true},
    {{"Definition"},
     [](PlantedModule& module, const wchar_t* attribute) -> mdToken {
         return module.method_def(module.type_def(attribute, mdTypeRefNil), L".ctor",
                                  kNoParameters);
     },
     true},
    {{"NestedDefinition"},
     [](PlantedModule& module, const wchar_t* attribute) -> mdToken {
         return module.method_def(nested_type(module, attribute), L".ctor", kNoParameters);
     },
     true},
    {{"ReferenceToDefinition"},
     [](PlantedModule& module, const wchar_t* attribute) {
         return constructor_ref(module, module.type_def(attribute, mdTypeRefNil));
     },
     true},
    {{"AnotherType"},
     [](PlantedModule& module, const wchar_t* attribute) {
         return constructor_ref(module, module.type_ref(module.assembly_ref(L"kite.managed"),
                                                        (std::wstring(attribute) + L"2").c_str()));
     },
     false},
    {{"Specification"},
     [](PlantedModule& module, const wchar_t* attribute) {
         const mdToken type = module.type_ref(module.assembly_ref(L"kite.managed"), attribute);
         std::uint8_t blob[5] = {ELEMENT_TYPE_CLASS};
         const ULONG size = CorSigCompressToken(type, blob + 1);
         mdTypeSpec specification = mdTypeSpecNil;
         EXPECT_EQ(module.emit().GetTokenFromTypeSpec(blob, size + 1, &specification), S_OK);
         return constructor_ref(module, specification);
     },
     true},
};

class PlantedAttribute : public ::testing::TestWithParam<Origin> {
protected:
    void SetUp() override {
        if (dispenser() == nullptr) {
            GTEST_SKIP() << "CORVANE_DOTNET_ROOTS names no folder with runtime 10";
        }
    }

    static void mark(PlantedModule& module, mdToken owner, mdToken constructor) {
        constexpr std::uint8_t kNoArguments[] = {1, 0, 0, 0};
        mdCustomAttribute attribute = mdCustomAttributeNil;
        ASSERT_EQ(module.emit().DefineCustomAttribute(owner, constructor, kNoArguments,
                                                      sizeof(kNoArguments), &attribute),
                  S_OK);
    }
    static bool is_found(PlantedModule& module, mdMethodDef method, const wchar_t* attribute) {
        return module.import().GetCustomAttributeByName(method, attribute, nullptr, nullptr) ==
               S_OK;
    }
};
INSTANTIATE_TEST_SUITE_P(Origins, PlantedAttribute, ::testing::ValuesIn(kOrigins),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(PlantedAttribute, IsFoundOnTheMethodsThatHaveIt) {
    for (const wchar_t* const attribute : {kTraceAttribute, kTransparentAttribute}) {
        PlantedModule module(*dispenser());
        const mdTypeDef type = module.type_def(L"Shop.Orders", mdTypeRefNil);
        const mdMethodDef plain = module.method_def(type, L"Plain", kNoParameters);
        const mdMethodDef marked = module.method_def(type, L"Marked", kNoParameters);
        const mdMethodDef later = module.method_def(type, L"Later", kNoParameters);
        const mdToken constructor = GetParam().constructor(module, attribute);
        mark(module, marked, constructor);
        for (int i = 0; i < 2; ++i) {
            EXPECT_FALSE(needs_description(&module, plain));
            EXPECT_EQ(is_found(module, marked, attribute), GetParam().is_found);
            EXPECT_EQ(needs_description(&module, marked), GetParam().is_found);
        }
        mark(module, later, constructor); // as when a running program is edited
        EXPECT_EQ(needs_description(&module, later), GetParam().is_found);
    }
}

TEST_P(PlantedAttribute, IsFoundWhenItComesLaterThanTheFacts) {
    for (const wchar_t* const attribute : {kTraceAttribute, kTransparentAttribute}) {
        PlantedModule module(*dispenser());
        const mdTypeDef type = module.type_def(L"Shop.Orders", mdTypeRefNil);
        const mdMethodDef method = module.method_def(type, L"Plain", kNoParameters);
        EXPECT_FALSE(needs_description(&module, method));
        mark(module, method, GetParam().constructor(module, attribute));
        EXPECT_EQ(is_found(module, method, attribute), GetParam().is_found);
        EXPECT_EQ(needs_description(&module, method), GetParam().is_found);
    }
}

} // namespace
} // namespace corvane::testing
