// Registration of this program's own server that fails on its way, in the real registry.
#include "profiler/com_module.h"

#include "profiler/class_ids.h"
#include "tests/support/allocations.h"
#include "tests/support/patched_import.h"

#include <gtest/gtest.h>

#include <oleauto.h>

#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace corvane {
namespace {

using testing::PatchedImport;

struct KeyCloser {
    void operator()(HKEY key) const noexcept { RegCloseKey(key); }
};
using OwnedKey = std::unique_ptr<std::remove_pointer_t<HKEY>, KeyCloser>;

// The values of a key, by name, as they lie in the registry.
using Values = std::map<std::wstring, std::vector<BYTE>>;
using Keys = std::map<std::wstring, Values>;

Values values_of(HKEY key) {
    Values values;
    wchar_t name[256] = {};
    BYTE data[1024] = {};
    DWORD length = 256;
    DWORD size = sizeof(data);
    for (DWORD i = 0;
         RegEnumValueW(key, i, name, &length, nullptr, nullptr, data, &size) == ERROR_SUCCESS;
         ++i, length = 256, size = sizeof(data)) {
        values[name].assign(data, data + size);
    }
    return values;
}

void list(HKEY parent, const std::wstring& path, Keys& keys) {
    HKEY opened = nullptr;
    if (RegOpenKeyExW(parent, path.c_str(), 0, KEY_READ, &opened) != ERROR_SUCCESS) {
        return;
    }
    const OwnedKey owned(opened);
    keys[path] = values_of(opened);
    wchar_t name[256] = {};
    DWORD length = 256;
    for (DWORD i = 0; RegEnumKeyExW(opened, i, name, &length, nullptr, nullptr, nullptr, nullptr) ==
                      ERROR_SUCCESS;
         ++i, length = 256) {
        list(parent, path + L'\\' + name, keys);
    }
}

// The server's keys that are there.
Keys keys() {
    Keys there;
    for (const wchar_t* const path :
         {L"AppID\\{E1B7402C-93D5-4A6F-B28E-0F59C3A7D214}", L"AppID\\CorvaneProfiler.dll",
          L"CorvaneClrProfiler.1", L"CorvaneClrProfiler",
          L"CLSID\\{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}",
          L"TypeLib\\{8C64B0F3-2A17-4D95-A3BE-51F7D0C9E826}"}) {
        list(HKEY_CLASSES_ROOT, path, there);
    }
    return there;
}

// Calls that fail, by the number of the call, as long as a test wants.
constexpr int kNever = 1'000'000;
int calls_granted = kNever;
decltype(RegCreateKeyExW)* create_key = nullptr;
decltype(RegSetValueExW)* set_value = nullptr;

LSTATUS WINAPI fail_to_create(HKEY parent, LPCWSTR name, DWORD reserved, LPWSTR type, DWORD options,
                              REGSAM access, LPSECURITY_ATTRIBUTES security, PHKEY key,
                              LPDWORD disposition) {
    return calls_granted-- > 0 ? create_key(parent, name, reserved, type, options, access, security,
                                            key, disposition)
                               : ERROR_ACCESS_DENIED;
}
LSTATUS WINAPI fail_to_set(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                           DWORD size) {
    return calls_granted-- > 0 ? set_value(key, name, reserved, type, data, size)
                               : ERROR_ACCESS_DENIED;
}
// Has written all by then.
decltype(RegisterTypeLib)* register_library = nullptr;
HRESULT WINAPI fail_to_register(ITypeLib* library, OLECHAR* path, OLECHAR* help) {
    EXPECT_EQ(register_library(library, path, help), S_OK);
    return TYPE_E_REGISTRYACCESS;
}
HRESULT WINAPI fail_to_query(REFGUID, WORD, WORD, LCID, LPBSTR) {
    return TYPE_E_REGISTRYACCESS;
}

constexpr HRESULT kDenied = static_cast<HRESULT>(0x80070005);

class ServerRegistration : public ::testing::Test {
protected:
    ServerRegistration() {
        EXPECT_EQ(server_module().unregister_server(), S_OK);
        EXPECT_EQ(keys(), Keys());
    }
    ~ServerRegistration() override { EXPECT_EQ(server_module().unregister_server(), S_OK); }

    // Registers with a failure at every point, over nothing and over a registration; `fail(n)`
    // registers with n calls granted and answers whether the failure came.
    template <class Fail>
    void expect_all_or_nothing(const Fail& fail) {
        int failures = 0;
        for (; fail(failures); ++failures) {
            EXPECT_EQ(keys(), Keys()) << failures;
        }
        EXPECT_GT(failures, 3);
        const Keys registered = keys();
        EXPECT_GT(registered.size(), 15U);
        for (int i = 0; i < failures; ++i) {
            EXPECT_TRUE(fail(i));
            EXPECT_EQ(keys(), registered) << i;
        }
    }
};

TEST_F(ServerRegistration, TakesBackItsOwnKeysWhenOneCannotBeMade) {
    const PatchedImport patch("RegCreateKeyExW", &fail_to_create);
    create_key = patch.original();
    expect_all_or_nothing([](int granted) {
        calls_granted = granted;
        const HRESULT hr = server_module().register_server();
        const bool has_failed = calls_granted < 0;
        EXPECT_EQ(hr, has_failed ? kDenied : S_OK);
        return has_failed;
    });
}

TEST_F(ServerRegistration, TakesBackItsOwnKeysWhenAValueCannotBeSet) {
    const PatchedImport patch("RegSetValueExW", &fail_to_set);
    set_value = patch.original();
    expect_all_or_nothing([](int granted) {
        calls_granted = granted;
        const HRESULT hr = server_module().register_server();
        const bool has_failed = calls_granted < 0;
        EXPECT_EQ(hr, has_failed ? kDenied : S_OK);
        return has_failed;
    });
}

TEST_F(ServerRegistration, TakesBackItsOwnKeysWithoutMemory) {
    expect_all_or_nothing([](int granted) {
        const testing::FailingAllocation failing(static_cast<std::size_t>(granted));
        const HRESULT hr = server_module().register_server();
        const bool has_failed = testing::FailingAllocation::has_come();
        EXPECT_EQ(hr, has_failed ? E_OUTOFMEMORY : S_OK);
        return has_failed;
    });
}

TEST_F(ServerRegistration, TakesBackItsOwnKeysWithoutATypeLibrary) {
    {
        const PatchedImport patch("RegisterTypeLib", &fail_to_register);
        register_library = patch.original();
        EXPECT_EQ(server_module().register_server(), TYPE_E_REGISTRYACCESS);
        EXPECT_EQ(keys(), Keys());
    }
    EXPECT_EQ(server_module().register_server(), S_OK);
    const Keys registered = keys();
    const PatchedImport patch("RegisterTypeLib", &fail_to_register);
    EXPECT_EQ(server_module().register_server(), TYPE_E_REGISTRYACCESS);
    EXPECT_EQ(keys(), registered);
}

TEST_F(ServerRegistration, IsNotGoneWhenNobodyCanTell) {
    EXPECT_EQ(server_module().register_server(), S_OK);
    {
        const PatchedImport patch("QueryPathOfRegTypeLib", &fail_to_query);
        EXPECT_EQ(server_module().unregister_server(), TYPE_E_REGISTRYACCESS);
        EXPECT_TRUE(keys().contains(L"TypeLib\\{8C64B0F3-2A17-4D95-A3BE-51F7D0C9E826}"));
    }
    EXPECT_EQ(server_module().unregister_server(), S_OK);
    EXPECT_EQ(keys(), Keys());
}

} // namespace
} // namespace corvane
