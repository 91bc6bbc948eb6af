// What the library's own entry points answer when what they do fails.
#include "base/own_module.h"
#include "clr/com_ptr.h"
#include "profiler/class_factory.h"
#include "profiler/com_module.h"
#include "tests/support/allocations.h"
#include "tests/support/patched_import.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <type_traits>

namespace corvane {
namespace {

using testing::FailingAllocation;
using testing::PatchedImport;

struct LibraryFreer {
    void operator()(HMODULE library) const noexcept { FreeLibrary(library); }
};
using OwnedLibrary = std::unique_ptr<std::remove_pointer_t<HMODULE>, LibraryFreer>;

LSTATUS WINAPI refuse(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES, PHKEY,
                      LPDWORD) {
    return ERROR_ACCESS_DENIED;
}

TEST(EntryPoints, AnswerWhyTheServerIsNotRegistered) {
    const std::filesystem::path file =
        std::filesystem::path(own_module_path()).parent_path() / "CorvaneProfiler.dll";
    const OwnedLibrary library(LoadLibraryW(file.c_str()));
    ASSERT_TRUE(library);
    using Register = HRESULT(STDAPICALLTYPE*)();
    const auto do_register = reinterpret_cast<Register>(
        reinterpret_cast<void*>(GetProcAddress(library.get(), "DllRegisterServer")));
    ASSERT_NE(do_register, nullptr);
    const PatchedImport patch("RegCreateKeyExW", &refuse, library.get());
    EXPECT_EQ(do_register(), E_ACCESSDENIED);
}

TEST(EntryPoints, CreateNothingWithoutMemory) {
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(get_profiler_class_factory(__uuidof(IClassFactory), factory.put_void()), S_OK);
    std::size_t granted = 0;
    for (bool has_failed = true; has_failed; ++granted) {
        ComPtr<IUnknown> object;
        HRESULT hr = S_OK;
        {
            const FailingAllocation failing(granted);
            hr = factory->CreateInstance(nullptr, __uuidof(IUnknown), object.put_void());
            has_failed = FailingAllocation::has_come();
        }
        EXPECT_EQ(hr, has_failed ? E_OUTOFMEMORY : S_OK);
        EXPECT_EQ(static_cast<bool>(object), !has_failed);
    }
    EXPECT_GE(granted, 2U); // the object itself
    factory = {};
    EXPECT_EQ(server_module().can_unload_now(), S_OK); // nothing of it is left
}

} // namespace
} // namespace corvane
