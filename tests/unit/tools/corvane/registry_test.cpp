#include "tools/corvane/registry.h"

#include "tests/support/patched_import.h"
#include "tools/corvane/findings.h"

#include <gtest/gtest.h>

#include <string>

namespace corvane::tool {
namespace {

LSTATUS APIENTRY refuse_to_open(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY) {
    return ERROR_ACCESS_DENIED;
}

TEST(Registry, SaysWhatMayNotBeRead) {
    const ::corvane::testing::PatchedImport refusal("RegOpenKeyExW", &refuse_to_open);
    try {
        registry_text(HKEY_LOCAL_MACHINE, L"SYSTEM\\Setup", L"x");
        FAIL();
    } catch (const FailedFinding& failed) {
        EXPECT_EQ(failed.code, 152);
        EXPECT_TRUE(failed.finding.text.starts_with("cannot read the registry, SYSTEM\\Setup ("));
    }
}

TEST(Registry, HasNothingWhereThereIsNothing) {
    EXPECT_EQ(registry_text(HKEY_LOCAL_MACHINE, L"SYSTEM\\no such key", L"x"), std::nullopt);
    EXPECT_EQ(registry_texts(HKEY_LOCAL_MACHINE, L"SYSTEM", L"no such value"), std::nullopt);
    EXPECT_TRUE(registry_values(HKEY_LOCAL_MACHINE, L"SYSTEM\\no such key").empty());
}

} // namespace
} // namespace corvane::tool
