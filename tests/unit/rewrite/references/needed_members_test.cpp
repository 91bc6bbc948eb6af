#include "rewrite/references/needed_members.h"

#include "tests/support/failing_metadata.h"

#include <gtest/gtest.h>

#include <string_view>

namespace corvane {
namespace {

// Has every type and method that it is asked for, but one.
class AllBut final : public testing::FailingMetadata {
public:
    explicit AllBut(std::wstring_view missing) : missing_(missing) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (iid != __uuidof(IMetaDataAssemblyImport)) {
            return E_NOINTERFACE;
        }
        *object = static_cast<IMetaDataAssemblyImport*>(this);
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE FindTypeDefByName(LPCWSTR name, mdToken, mdTypeDef* type) override {
        *type = mdtTypeDef | 1;
        return is_there(name);
    }
    HRESULT STDMETHODCALLTYPE FindExportedTypeByName(LPCWSTR name, mdToken,
                                                     mdExportedType* type) override {
        *type = 1;
        return is_there(name);
    }
    HRESULT STDMETHODCALLTYPE FindMethod(mdTypeDef, LPCWSTR name, PCCOR_SIGNATURE, ULONG,
                                         mdMethodDef* method) override {
        *method = mdtMethodDef | 1;
        return is_there(name);
    }

private:
    HRESULT is_there(std::wstring_view name) const { return name == missing_ ? E_FAIL : S_OK; }

    std::wstring_view missing_;
};

TEST(MissingFromMscorlib, IsAnyTypeThatInjectedCodeNames) {
    for (const wchar_t* const type :
         {L"System.Exception", L"System.Reflection.MethodBase", L"System.Object", L"System.Boolean",
          L"System.Char", L"System.SByte", L"System.Byte", L"System.Int16", L"System.UInt16",
          L"System.Int32", L"System.UInt32", L"System.Int64", L"System.UInt64", L"System.Single",
          L"System.Double", L"System.IntPtr", L"System.UIntPtr"}) {
        AllBut mscorlib(type);
        EXPECT_EQ(missing_from_mscorlib(&mscorlib, false), type);
        EXPECT_EQ(missing_from_mscorlib(&mscorlib, true), type);
    }
    AllBut without_array(L"System.Array");
    EXPECT_EQ(missing_from_mscorlib(&without_array, false), L"");
    EXPECT_EQ(missing_from_mscorlib(&without_array, true), L"System.Array");
    AllBut without_string(L"System.String");
    EXPECT_EQ(missing_from_mscorlib(&without_string, true), L"");
}

TEST(MissingFromCoreLibrary, IsAMethodThatInjectedCodeCalls) {
    AllBut without_method(L"GetCurrentMethod");
    AllBut without_array(L"System.Array");
    AllBut without_search(L"IndexOf");
    AllBut whole(L"");
    for (const bool strict : {false, true}) {
        EXPECT_EQ(missing_from_core_library(&without_method, strict),
                  L"System.Reflection.MethodBase::GetCurrentMethod");
        EXPECT_EQ(missing_from_core_library(&without_array, strict),
                  strict ? L"System.Array" : L"");
        EXPECT_EQ(missing_from_core_library(&without_search, strict),
                  strict ? L"System.Array::IndexOf" : L"");
        EXPECT_EQ(missing_from_core_library(&whole, strict), L"");
    }
}

} // namespace
} // namespace corvane
