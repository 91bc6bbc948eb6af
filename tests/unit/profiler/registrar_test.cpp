#include "profiler/registrar.h"

#include <gtest/gtest.h>

#include <string>

namespace corvane {
namespace {

const std::wstring kTestKey = L"Corvane.RegistrarTest";

// Removes the test's key whatever a test leaves.
class RegistrarTest : public ::testing::Test {
protected:
    RegistrarTest() { RegDeleteTreeW(HKEY_CLASSES_ROOT, kTestKey.c_str()); }
    ~RegistrarTest() override { RegDeleteTreeW(HKEY_CLASSES_ROOT, kTestKey.c_str()); }

    static RegistryKey script(const std::wstring& keys) {
        return parse_registry_script(L"HKCR { NoRemove " + kTestKey + L" { " + keys + L" } }", {});
    }

    // To stay, whether it failed or not.
    static HRESULT write(const RegistryKey& keys) {
        NewRegistryKeys made;
        const HRESULT hr = write_registry_keys(keys, made);
        made.keep();
        return hr;
    }

    // The text of a value below the test's key; "-" when it is not there.
    static std::wstring text(const std::wstring& key, const wchar_t* value) {
        wchar_t buffer[100] = {};
        DWORD size = sizeof(buffer);
        return RegGetValueW(HKEY_CLASSES_ROOT, (kTestKey + key).c_str(), value, RRF_RT_REG_SZ,
                            nullptr, buffer, &size) == ERROR_SUCCESS
                   ? buffer
                   : L"-";
    }

    static bool exists(const std::wstring& key) {
        HKEY opened = nullptr;
        const LSTATUS status =
            RegOpenKeyExW(HKEY_CLASSES_ROOT, (kTestKey + key).c_str(), 0, KEY_READ, &opened);
        if (status == ERROR_SUCCESS) {
            RegCloseKey(opened);
        }
        return status == ERROR_SUCCESS;
    }
};

TEST_F(RegistrarTest, WritesKeysAndValues) {
    EXPECT_EQ(write(script(L"a = s 'default' { val name = s 'it''s' b = s '' c }")), S_OK);
    EXPECT_EQ(text(L"\\a", nullptr), L"default");
    EXPECT_EQ(text(L"\\a", L"name"), L"it's");
    EXPECT_EQ(text(L"\\a\\b", nullptr), L"");
    EXPECT_TRUE(exists(L"\\a\\c"));
    EXPECT_EQ(text(L"\\a\\c", nullptr), L"-");
}

TEST_F(RegistrarTest, OverwritesAndKeepsWhatIsNotInTheScript) {
    EXPECT_EQ(write(script(L"a = s '1' { val other = s 'x' }")), S_OK);
    EXPECT_EQ(write(script(L"a = s '2'")), S_OK);
    EXPECT_EQ(text(L"\\a", nullptr), L"2");
    EXPECT_EQ(text(L"\\a", L"other"), L"x");
}

TEST_F(RegistrarTest, RemovesAllButProtectedKeys) {
    const RegistryKey keys = script(L"a = s '1' { b { c } } NoRemove d { e }");
    EXPECT_EQ(write(keys), S_OK);
    EXPECT_EQ(remove_registry_keys(keys), S_OK);
    EXPECT_FALSE(exists(L"\\a"));
    EXPECT_TRUE(exists(L"\\d"));
    EXPECT_FALSE(exists(L"\\d\\e"));
    EXPECT_EQ(remove_registry_keys(keys), S_OK); // what is not there is no failure
}

TEST_F(RegistrarTest, TakesBackWhatIsNew) {
    EXPECT_EQ(write(script(L"a = s '1' { b }")), S_OK);
    {
        NewRegistryKeys made;
        EXPECT_EQ(
            write_registry_keys(script(L"a = s '2' { b { c } d { e } } NoRemove f { g }"), made),
            S_OK);
        EXPECT_TRUE(exists(L"\\a\\b\\c"));
        EXPECT_TRUE(exists(L"\\a\\d\\e"));
        EXPECT_TRUE(exists(L"\\f\\g"));
    }
    EXPECT_TRUE(exists(L"\\a\\b"));
    EXPECT_FALSE(exists(L"\\a\\b\\c"));
    EXPECT_FALSE(exists(L"\\a\\d"));
    EXPECT_FALSE(exists(L"\\f")); // protected against removal, but it was not there
    EXPECT_EQ(text(L"\\a", nullptr), L"2");
}

TEST_F(RegistrarTest, ReturnsTheFailureOfACall) {
    // No key name is longer than 255 characters.
    const std::wstring name(300, L'n');
    HKEY opened = nullptr;
    const LSTATUS status =
        RegCreateKeyExW(HKEY_CLASSES_ROOT, name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                        KEY_READ | KEY_WRITE, nullptr, &opened, nullptr);
    ASSERT_NE(status, ERROR_SUCCESS);
    EXPECT_EQ(write(script(L"a " + name + L" z")), HRESULT_FROM_WIN32(status));
    EXPECT_TRUE(exists(L"\\a"));
    EXPECT_FALSE(exists(L"\\z")); // nothing behind the failure is written
}

} // namespace
} // namespace corvane
