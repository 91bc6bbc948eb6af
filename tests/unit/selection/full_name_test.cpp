#include "selection/full_name.h"

#include "tests/support/failing_metadata.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace corvane {
namespace {

using testing::FailingMetadata;

// Types with their names and the types that they are nested in.
class Types final : public FailingMetadata {
public:
    struct Type {
        std::wstring name;
        mdTypeDef enclosing = mdTypeDefNil;
    };
    std::map<mdTypeDef, Type> types;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE GetTypeDefProps(mdTypeDef type, LPWSTR name, ULONG capacity,
                                              ULONG* length, DWORD*, mdToken*) override {
        const auto found = types.find(type);
        if (found == types.end()) {
            return E_FAIL;
        }
        *length = static_cast<ULONG>(found->second.name.size() + 1);
        if (name != nullptr) {
            found->second.name.copy(name, capacity);
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetNestedClassProps(mdTypeDef type, mdTypeDef* enclosing) override {
        const mdTypeDef found = types[type].enclosing;
        if (found == mdTypeDefNil) {
            return E_FAIL;
        }
        *enclosing = found;
        return S_OK;
    }
};

TEST(FullName, HoldsTheTypesAround) {
    Types metadata;
    metadata.types = {{2, {L"Shop.Cart"}}, {3, {L"Line", 2}}, {4, {L"Part`1", 3}}};
    EXPECT_EQ(full_type_name(metadata, 2), L"Shop.Cart");
    EXPECT_EQ(full_type_name(metadata, 3), L"Shop.Cart+Line");
    EXPECT_EQ(full_type_name(metadata, 4), L"Shop.Cart+Line+Part`1");
}

TEST(FullName, IsEmptyWhereItCannotBeTold) {
    Types metadata;
    metadata.types = {{2, {L"Itself", 2}}, {3, {L"Line", 9}}};
    EXPECT_EQ(full_type_name(metadata, 2), L"");
    EXPECT_EQ(full_type_name(metadata, 3), L"");
    EXPECT_EQ(full_type_name(metadata, 9), L"");
}

} // namespace
} // namespace corvane
