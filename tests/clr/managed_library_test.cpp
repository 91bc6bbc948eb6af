// What is believed to be the managed library, and what is not; read by the runtime's own engine.
#include "rewrite/references/managed_library.h"

#include "rewrite/references/metadata_file.h"
#include "rewrite/references/needed_members.h"
#include "tests/support/real_methods.h"
#include "tests/support/runtime_test.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace corvane::testing {
namespace {

// The engine is in the process once a test has asked for it; it stays.
class MetadataFile : public ::testing::Test {
protected:
    void SetUp() override {
        const auto folder = newest_runtime_folder();
        if (!folder || !metadata_dispenser(*folder)) {
            GTEST_SKIP() << "CORVANE_DOTNET_ROOTS names no folder with runtime 10";
        }
        runtime = *folder;
    }

    static ComPtr<IMetaDataImport> open(const std::filesystem::path& file) {
        ComPtr<IMetaDataImport> metadata = open_metadata_file(file.wstring());
        if (!metadata) {
            throw std::runtime_error("cannot open " + file.string());
        }
        return metadata;
    }

    std::filesystem::path runtime;
};

struct Variant : NamedRow {
    const wchar_t* folder;
    const wchar_t* reason;
    bool serves_default_form = false;
};

class LibraryVariant : public MetadataFile, public ::testing::WithParamInterface<Variant> {};
constexpr Variant kVariants[] = {
    {{"OtherName"}, L"other-name", L"is another assembly"},
    {{"Older"}, L"older", L"is of version 3.8.9.9"},
    {{"Later"}, L"later", L"", true},
    {{"Unsigned"}, L"unsigned", L"is not signed"},
    {{"OtherKey"}, L"other-key", L"is signed with another key"},
    {{"NoDirectives"},
     L"no-directives",
     L"lacks Corvane.Instrumentation.InstrumentationDirectives"},
    {{"NoSpan"}, L"no-span", L"lacks kite.managed.span"},
    {{"NoInvokers"}, L"no-invokers", L"lacks Corvane.Instrumentation.Invokers"},
    {{"NoConstructor"},
     L"no-constructor",
     L"lacks Corvane.Instrumentation.InstrumentationDirectives::.ctor"},
    {{"NoGetIndexes"},
     L"no-get-indexes",
     L"lacks Corvane.Instrumentation.InstrumentationDirectives::GetIndexes"},
    {{"NoLog"}, L"no-log", L"lacks kite.managed.span::Log"},
    {{"NoError"}, L"no-error", L"lacks kite.managed.span::Error"},
    {{"NoPrologue"}, L"no-prologue", L"lacks kite.managed.span::GenericPrologue"},
    {{"NoEpilogue"}, L"no-epilogue", L"lacks kite.managed.span::GenericEpilogue"},
    {{"NoContainsKey"}, L"no-contains-key", L"lacks Corvane.Instrumentation.Invokers::ContainsKey"},
    {{"NoRegisterMethod"},
     L"no-register-method",
     L"lacks Corvane.Instrumentation.Invokers::RegisterMethod"},
    {{"NoHasListeners"},
     L"no-has-listeners",
     L"lacks Corvane.Instrumentation.Invokers::HasListeners",
     true},
    {{"OtherSignature"}, L"other-signature", L"lacks kite.managed.span::Log"},
};
INSTANTIATE_TEST_SUITE_P(Variants, LibraryVariant, ::testing::ValuesIn(kVariants),
                         [](const auto& variant) { return std::string(variant.param.name); });

TEST_P(LibraryVariant, IsJudgedByWhatIsCalled) {
    const auto file = built_file(L"managed") / "variants" / GetParam().folder / "kite.managed.dll";
    EXPECT_EQ(reason_against_library(open(file).get(), true), GetParam().reason);
    EXPECT_EQ(reason_against_library(open(file).get(), false),
              GetParam().serves_default_form ? L"" : GetParam().reason);
}

TEST_F(MetadataFile, OfTheLibraryHasNothingAgainstIt) {
    EXPECT_EQ(reason_against_library(open(managed_library()).get(), true), L"");
}

TEST_F(MetadataFile, OfARuntimeHasWhatInjectedCodeNames) {
    EXPECT_EQ(missing_from_mscorlib(open(runtime / "mscorlib.dll").get(), true), L"");
    EXPECT_EQ(missing_from_core_library(open(runtime / "System.Private.CoreLib.dll").get(), true),
              L"");
}

TEST_F(MetadataFile, OfAnotherAssemblyLacksIt) {
    EXPECT_EQ(missing_from_mscorlib(open(runtime / "System.Linq.dll").get(), true),
              L"System.Exception");
    EXPECT_EQ(missing_from_core_library(open(runtime / "System.Linq.dll").get(), true),
              L"System.Reflection.MethodBase");
}

TEST_F(MetadataFile, IsNoTextAndNoNativeLibrary) {
    const OwnFolder folder;
    const auto file = folder.path() / "kite.managed.dll";
    for (const char* const text : {"", "MZ", "this is a text"}) {
        write_file(file, text);
        EXPECT_FALSE(open_metadata_file(file.wstring())) << text;
    }
    EXPECT_FALSE(open_metadata_file((folder.path() / "nothing.dll").wstring()));
    EXPECT_FALSE(open_metadata_file((runtime / "coreclr.dll").wstring()));
}

} // namespace
} // namespace corvane::testing
