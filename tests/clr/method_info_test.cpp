// method_info and the decision that follows it, over real metadata: a C# compiler wrote it and the
// runtime's own engine reads it.
#include "selection/jit_flow.h"
#include "selection/target_methods.h"
#include "tests/support/real_methods.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>

namespace corvane::testing {
namespace {

// One engine for all tests: it stays loaded.
IMetaDataDispenserEx* dispenser() {
    static const ComPtr<IMetaDataDispenserEx> engine = [] {
        const auto folder = newest_runtime_folder();
        return folder ? metadata_dispenser(*folder) : ComPtr<IMetaDataDispenserEx>();
    }();
    return engine.get();
}

std::filesystem::path program_file(const char* name) {
    return built_file(std::filesystem::path(CORVANE_PROGRAMS_FOLDER).make_preferred()) /
           "selected" / name;
}

class RealMethodInfo : public ::testing::Test {
protected:
    void SetUp() override {
        if (dispenser() == nullptr) {
            GTEST_SKIP() << "CORVANE_DOTNET_ROOTS names no folder with runtime 10";
        }
    }

    static method_info describe(const char* file, const wchar_t* type, const wchar_t* name) {
        RealMethods methods(*dispenser(), program_file(file));
        method_info method;
        const FunctionID function = methods.find(type, name);
        EXPECT_NE(function, 0U) << file;
        EXPECT_GE(method.get_info(&methods, function), 0);
        EXPECT_EQ(method.method_token, function);
        EXPECT_EQ(method.module_id, RealMethods::kModule);
        EXPECT_EQ(method.assembly_id, RealMethods::kAssembly);
        EXPECT_EQ(std::wstring(method.module_name), program_file(file).wstring());
        EXPECT_EQ(std::wstring(method.assembly_name), program_file(file).stem().wstring());
        EXPECT_EQ(method.method_name, name);
        return method;
    }

    static std::vector<std::uint8_t> signature_of(const method_info& method) {
        return {method.signature, method.signature + method.signature_size};
    }
};

using Bytes = std::vector<std::uint8_t>;

TEST_F(RealMethodInfo, NamesAMethodWithItsNamespace) {
    const method_info method = describe("selected.dll", L"Serilog.Context.LogContext", L"Enrich");
    EXPECT_EQ(method.type_name, L"Serilog.Context.LogContext");
    EXPECT_FALSE(method.has_trace_attribute);
    EXPECT_FALSE(method.is_transparent);
}

TEST_F(RealMethodInfo, NamesConstructors) {
    EXPECT_EQ(describe("selected.dll", L"Shapes.Marked", L".ctor").type_name, L"Shapes.Marked");
}

TEST_F(RealMethodInfo, NamesNestedTypesWithoutTheirEnclosingType) {
    const method_info method = describe("selected.dll", L"Shapes.Instance+Nested", L"Main");
    EXPECT_EQ(method.type_name, L"Nested");
}

TEST_F(RealMethodInfo, NamesGenericTypesByTheirMetadataName) {
    EXPECT_EQ(describe("selected.dll", L"Shapes.Generic`1", L"Get").type_name, L"Shapes.Generic`1");
}

TEST_F(RealMethodInfo, GivesTheSignature) {
    EXPECT_EQ(signature_of(describe("selected.dll", L"Shapes.Static", L"Main")),
              (Bytes{0x00, 0x01, 0x08, 0x08})); // static int Main(int)
    EXPECT_EQ(signature_of(describe("selected.dll", L"Shapes.Instance", L"Main")),
              (Bytes{0x20, 0x01, 0x08, 0x08}));
    EXPECT_EQ(signature_of(describe("selected.dll", L"Shapes.Marked", L"Generic")),
              (Bytes{0x30, 0x01, 0x01, 0x1E, 0x00, 0x1E, 0x00}));
}

TEST_F(RealMethodInfo, FindsTheTraceAttribute) {
    for (const wchar_t* const name : {L".ctor", L"Plain", L"Generic", L"Transparent"}) {
        EXPECT_TRUE(describe("selected.dll", L"Shapes.Marked", name).has_trace_attribute);
    }
    EXPECT_FALSE(describe("selected.dll", L"Shapes.Marked", L"Unmarked").has_trace_attribute);
}

TEST_F(RealMethodInfo, FindsTheTransparencyOfAMethod) {
    EXPECT_TRUE(
        describe("selected.dll", L"Corvane.Instrumentation.MultipleExitPoints", L"SomeVoidMethod")
            .is_transparent);
    EXPECT_TRUE(describe("selected.dll", L"Shapes.Marked", L"Transparent").is_transparent);
    EXPECT_FALSE(describe("selected.dll", L"Corvane.Instrumentation.MultipleExitPoints",
                          L"InstrumentedMethod")
                     .is_transparent);
}

TEST_F(RealMethodInfo, FindsTheTransparencyOfAnAssembly) {
    const method_info method = describe("transparent.dll", L"Corvane.BVT.Activator", L"Activate");
    EXPECT_TRUE(method.is_transparent);
    EXPECT_FALSE(method.has_trace_attribute);
}

// Names and modes of the methods that rewriting would get.
std::vector<std::wstring> rewritten;
HRESULT note(RewriteContext&, ICorProfilerInfo*, const method_info& method,
             InstrumentationMode mode) {
    std::wstring& entry = rewritten.emplace_back(method.type_name);
    (entry += L'.') += method.method_name;
    entry += mode == InstrumentationMode::kTable ? L" table" : L" attribute";
    return S_OK;
}

class RealSelection : public RealMethodInfo {
protected:
    RealSelection() {
        rewritten.clear();
        build_target_methods({});
        default_log = DebugLog(L"", 0);
    }
    ~RealSelection() override {
        target_methods.clear();
        default_log = DebugLog();
    }

    // Offers all methods of a file; gives how many they were.
    static std::size_t compile_all(const std::filesystem::path& file,
                                   bool transparency_instrumentation) {
        RealMethods methods(*dispenser(), file);
        const auto functions = methods.with_body();
        for (const FunctionID function : functions) {
            on_jit_compilation_started(
                &methods, function, {.transparency_instrumentation = transparency_instrumentation},
                note);
        }
        return functions.size();
    }
};

TEST_F(RealSelection, TakesMarkedMethodsThatAreNotGeneric) {
    compile_all(program_file("selected.dll"), false);
    EXPECT_THAT(rewritten,
                ::testing::UnorderedElementsAre(
                    L"Program.Main table", L"Shapes.Static.Main table", L"Nested.Main table",
                    L"Corvane.Instrumentation.MultipleExitPoints.InstrumentedMethod table",
                    L"Corvane.Instrumentation.MethodArguments.InstrumentedMethod table",
                    L"Shapes.Marked..ctor attribute", L"Shapes.Marked.Plain attribute"));
}

TEST_F(RealSelection, TakesTransparentOnesWithTheSwitch) {
    compile_all(program_file("selected.dll"), true);
    EXPECT_THAT(rewritten,
                ::testing::UnorderedElementsAre(
                    L"Program.Main table", L"Shapes.Static.Main table", L"Nested.Main table",
                    L"Corvane.Instrumentation.MultipleExitPoints.InstrumentedMethod table",
                    L"Corvane.Instrumentation.MultipleExitPoints.SomeVoidMethod table",
                    L"Corvane.Instrumentation.MethodArguments.InstrumentedMethod table",
                    L"Shapes.Marked..ctor attribute", L"Shapes.Marked.Plain attribute",
                    L"Shapes.Marked.Transparent attribute"));
}

TEST_F(RealSelection, TakesWhatItKnowsOfTheDatabaseClient) {
    EXPECT_GT(compile_all(program_file("System.Data.SqlClient.dll"), false), 5000U);
    std::vector<std::wstring> expected;
    for (const wchar_t* const name :
         {L"ExecuteReader", L"ExecuteReader", L"ExecuteScalar", L"ExecuteNonQuery",
          L"ExecuteXmlReader", L"EndExecuteReader", L"EndExecuteNonQuery", L"EndExecuteXmlReader",
          // Of these the one overload with a callback and a state.
          L"BeginExecuteReader", L"BeginExecuteNonQuery", L"BeginExecuteXmlReader"}) {
        expected.push_back(std::wstring(L"System.Data.SqlClient.SqlCommand.") + name + L" table");
    }
    EXPECT_THAT(rewritten, ::testing::UnorderedElementsAreArray(expected));
}

TEST_F(RealSelection, TakesWhatItKnowsOfTheWebClient) {
    EXPECT_GT(compile_all(*newest_runtime_folder() / "System.Net.Requests.dll", false), 500U);
    EXPECT_THAT(rewritten, ::testing::UnorderedElementsAre(
                               L"System.Net.HttpWebRequest.BeginGetResponse table",
                               L"System.Net.HttpWebRequest.EndGetResponse table",
                               L"System.Net.HttpWebRequest.GetResponse table",
                               L"System.Net.HttpWebRequest.BeginGetRequestStream table",
                               // With the transport context; the other overload is left alone.
                               L"System.Net.HttpWebRequest.GetRequestStream table"));
}

TEST_F(RealSelection, TakesNothingOfTheCoreLibrary) {
    EXPECT_GT(compile_all(*newest_runtime_folder() / "System.Private.CoreLib.dll", false), 20000U);
    EXPECT_THAT(rewritten, ::testing::IsEmpty());
}

} // namespace
} // namespace corvane::testing
