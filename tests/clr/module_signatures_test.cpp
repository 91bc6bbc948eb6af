// Locals that are added to a body, in metadata that the runtime's own engine keeps.
#include "rewrite/body/module_signatures.h"

#include "clr/com_ptr.h"
#include "clr/cor_profiler.h"
#include "il/element_type.h"
#include "rewrite/body/method_body.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;

using ::testing::ElementsAre;

using Bytes = std::vector<std::uint8_t>;

using MetaDataGetDispenser = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);

// Of the newest runtime; empty where there is none. Never unloaded: the runtime's library does not
// support it.
ComPtr<IMetaDataDispenserEx> metadata_dispenser() {
    ComPtr<IMetaDataDispenserEx> dispenser;
    const char* const roots = std::getenv("CORVANE_DOTNET_ROOTS");
    if (roots == nullptr) {
        return dispenser;
    }
    const fs::path versions = fs::absolute(roots) / "10" / "shared" / "Microsoft.NETCore.App";
    const fs::path folder = fs::directory_iterator(fs::path(versions).make_preferred())->path();
    const HMODULE coreclr =
        LoadLibraryExW((folder / "coreclr.dll").c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (coreclr == nullptr) {
        ADD_FAILURE() << "coreclr.dll: " << GetLastError();
        return dispenser;
    }
    const auto get_dispenser = reinterpret_cast<MetaDataGetDispenser>(
        reinterpret_cast<void (*)()>(GetProcAddress(coreclr, "MetaDataGetDispenser")));
    EXPECT_EQ(
        get_dispenser(CLSID_CorMetaDataDispenser, IID_IMetaDataDispenserEx, dispenser.put_void()),
        S_OK);
    return dispenser;
}

class ModuleSignaturesTest : public ::testing::Test {
protected:
    void SetUp() override {
        static const ComPtr<IMetaDataDispenserEx> dispenser = metadata_dispenser();
        if (!dispenser) {
            GTEST_SKIP() << "CORVANE_DOTNET_ROOTS does not name the folder of the .NET runtimes";
        }
        ASSERT_EQ(dispenser->DefineScope(CLSID_CorMetaDataRuntime, 0, __uuidof(IMetaDataEmit),
                                         emit_.put_unknown()),
                  S_OK);
        ASSERT_EQ(emit_.query(import_), S_OK);
        signatures.emplace(import_.get(), emit_.get());
        body.local_signatures = &*signatures;
    }

    mdTypeRef type_ref(const wchar_t* name) const {
        mdTypeRef token = mdTypeRefNil;
        EXPECT_EQ(emit_->DefineTypeRefByName(TokenFromRid(1, mdtModule), name, &token), S_OK);
        return token;
    }

    mdTypeSpec type_spec(const Bytes& blob) const {
        mdTypeSpec token = mdTypeSpecNil;
        EXPECT_EQ(emit_->GetTokenFromTypeSpec(blob.data(), static_cast<ULONG>(blob.size()), &token),
                  S_OK);
        return token;
    }

    Bytes locals() const {
        PCCOR_SIGNATURE bytes = nullptr;
        ULONG size = 0;
        EXPECT_EQ(import_->GetSigFromToken(body.local_signature, &bytes, &size), S_OK);
        return {bytes, bytes + size};
    }

    std::optional<ModuleSignatures> signatures;
    MethodBody body;

private:
    ComPtr<IMetaDataEmit> emit_;
    ComPtr<IMetaDataImport> import_;
};

TEST_F(ModuleSignaturesTest, DefinesLocalsOfEveryKind) {
    const mdTypeRef list = type_ref(L"List");
    ASSERT_EQ(list, 0x01000001U);
    const mdTypeSpec list_of_strings = type_spec({0x15, 0x12, 0x05, 0x01, 0x0E});
    ASSERT_EQ(list_of_strings, 0x1B000001U);

    EXPECT_EQ(body.AddLocal(kElementI4), 0U);
    EXPECT_EQ(body.local_signature, 0x11000001U);
    EXPECT_EQ(body.AddLocal(list, kElementClass), 1U);
    EXPECT_EQ(body.AddLocal(list, kElementValueType), 2U);
    EXPECT_EQ(body.AddLocal(kElementObject, kElementSzArray), 3U);
    EXPECT_EQ(body.AddLocal(list_of_strings, kElementGenericInst), 4U);
    EXPECT_EQ(body.local_signature, 0x11000005U);
    EXPECT_THAT(locals(), ElementsAre(0x07, 5, 0x08, 0x12, 0x05, 0x11, 0x05, 0x1D, 0x1C, //
                                      0x15, 0x12, 0x05, 0x01, 0x0E));
}

TEST_F(ModuleSignaturesTest, ReusesTheTokenOfASignatureThatIsThere) {
    EXPECT_EQ(body.AddLocal(kElementI4), 0U);
    MethodBody other;
    other.local_signatures = &*signatures;
    EXPECT_EQ(other.AddLocal(kElementI4), 0U);
    EXPECT_EQ(other.local_signature, body.local_signature);
}

TEST_F(ModuleSignaturesTest, RefusesUnknownTokens) {
    body.local_signature = 0x11000063;
    EXPECT_EQ(body.AddLocal(kElementI4), 0U);
    EXPECT_EQ(body.local_signature, 0x11000063U);
    body.local_signature = 0;
    EXPECT_EQ(body.AddLocal(0x1B000063, kElementGenericInst), 0U);
    EXPECT_EQ(body.local_signature, 0U);
}

} // namespace
} // namespace corvane::testing
