#include "tools/corvane/machine_changes.h"

#include "base/hresult_text.h"
#include "base/local_memory.h"
#include "base/owned_handle.h"
#include "tools/corvane/command.h"
#include "tools/corvane/host_config.h"
#include "tools/corvane/install_record.h"
#include "tools/corvane/machine_settings.h"
#include "tools/corvane/registry.h"
#include "tools/corvane/utf8.h"

#include <windows.h>

#include <aclapi.h>
#include <bcrypt.h>
#include <sddl.h>

#include <array>
#include <memory>

namespace corvane::tool {
namespace {

namespace fs = std::filesystem;

const std::wstring kServices = L"SYSTEM\\CurrentControlSet\\Services\\";
constexpr SECURITY_INFORMATION kOwnerAndList =
    OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;

void require(const std::string& what, DWORD error) {
    if (error != ERROR_SUCCESS) {
        fail(what, error);
    }
}

void change_service(const std::wstring& name, const Changes& changes) {
    const std::wstring key = kServices + name;
    const std::string what = "cannot change the service " + to_utf8(name);
    const Words assignments = with_changes(
        registry_texts(HKEY_LOCAL_MACHINE, key, L"Environment").value_or(Words()), changes);
    std::wstring list;
    for (const std::wstring& assignment : assignments) {
        list += assignment + L'\0';
    }
    list += L'\0';
    HKEY opened = nullptr;
    require(what, static_cast<DWORD>(RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0,
                                                   KEY_SET_VALUE | KEY_WOW64_64KEY, &opened)));
    const LSTATUS status = assignments.empty()
                               ? RegDeleteValueW(opened, L"Environment")
                               : RegSetValueExW(opened, L"Environment", 0, REG_MULTI_SZ,
                                                reinterpret_cast<const BYTE*>(list.data()),
                                                static_cast<DWORD>(list.size() * sizeof(wchar_t)));
    RegCloseKey(opened);
    require(what, status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : static_cast<DWORD>(status));
}

// IIS reads the file whenever it changes: it is never there in part, and keeps its permissions.
void change_pool(const std::wstring& name, const Changes& changes) {
    const fs::path file = host_config_file();
    const auto text = with_pool_variables(read_file(file).value_or(""), name, changes);
    if (!text) {
        throw Failure("there is no application pool " + to_utf8(name) + " in " +
                      to_utf8(file.wstring()));
    }
    const fs::path fresh = file.wstring() + L".corvane";
    write_file(fresh, *text);
    if (ReplaceFileW(file.c_str(), fresh.c_str(), nullptr, 0, nullptr, nullptr) == FALSE) {
        const DWORD error = GetLastError();
        DeleteFileW(fresh.c_str());
        fail("cannot change " + to_utf8(file.wstring()), error);
    }
}

} // namespace

void fail(const std::string& what, unsigned long error) {
    std::string text = to_utf8(hresult_text(HRESULT_FROM_WIN32(error)).c_str());
    if (text.ends_with('.')) {
        text.pop_back(); // more may follow
    }
    throw Failure(what + ": " + text +
                  (error == ERROR_ACCESS_DENIED ? ". Run this command as administrator" : ""));
}

std::wstring permissions_of(const fs::path& folder) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const std::string what = "cannot read the permissions of " + to_utf8(folder.wstring());
    require(what, GetNamedSecurityInfoW(folder.c_str(), SE_FILE_OBJECT, kOwnerAndList, nullptr,
                                        nullptr, nullptr, nullptr, &descriptor));
    const LocalMemory<void> owned(descriptor);
    wchar_t* text = nullptr;
    if (ConvertSecurityDescriptorToStringSecurityDescriptorW(
            descriptor, SDDL_REVISION_1, kOwnerAndList, &text, nullptr) == FALSE) {
        fail(what, GetLastError());
    }
    return LocalMemory<wchar_t>(text).get();
}

void set_permissions(const fs::path& folder, const std::wstring& permissions) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const std::string what = "cannot set the permissions of " + to_utf8(folder.wstring());
    if (ConvertStringSecurityDescriptorToSecurityDescriptorW(permissions.c_str(), SDDL_REVISION_1,
                                                             &descriptor, nullptr) == FALSE) {
        fail(what, GetLastError());
    }
    const LocalMemory<void> owned(descriptor);
    PSID owner = nullptr;
    PACL list = nullptr;
    BOOL ignored = FALSE;
    BOOL has_list = FALSE;
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    GetSecurityDescriptorOwner(descriptor, &owner, &ignored);
    GetSecurityDescriptorDacl(descriptor, &has_list, &list, &ignored);
    GetSecurityDescriptorControl(descriptor, &control, &revision);
    const SECURITY_INFORMATION inherits = (control & SE_DACL_PROTECTED) != 0
                                              ? PROTECTED_DACL_SECURITY_INFORMATION
                                              : UNPROTECTED_DACL_SECURITY_INFORMATION;
    std::wstring name = folder.wstring();
    require(what, SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT, kOwnerAndList | inherits,
                                        owner, nullptr, list, nullptr));
}

std::optional<Environment> target_variables(bool is_pool, const std::wstring& name) {
    if (is_pool) {
        const auto pool = read_pool(read_file(host_config_file()).value_or(""), name);
        return pool ? std::optional(pool->own) : std::nullopt;
    }
    if (!has_registry_key(HKEY_LOCAL_MACHINE, kServices + name)) {
        return std::nullopt;
    }
    return as_environment(
        registry_texts(HKEY_LOCAL_MACHINE, kServices + name, L"Environment").value_or(Words()));
}

Environment inherited_variables(const std::wstring& pool) {
    const auto settings = read_pool(read_file(host_config_file()).value_or(""), pool);
    return settings ? settings->inherited : Environment();
}

void change_target(bool is_pool, const std::wstring& name, const Changes& changes) {
    if (is_pool) {
        change_pool(name, changes);
    } else {
        change_service(name, changes);
    }
}

std::string sum_of(std::string_view bytes) {
    std::array<UCHAR, 32> sum{};
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    NTSTATUS status = BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0);
    if (status >= 0) {
        status = BCryptHash(
            algorithm, nullptr, 0, reinterpret_cast<PUCHAR>(const_cast<char*>(bytes.data())),
            static_cast<ULONG>(bytes.size()), sum.data(), static_cast<ULONG>(sum.size()));
        BCryptCloseAlgorithmProvider(algorithm, 0);
    }
    if (status < 0) {
        throw Failure("cannot compute the sum of a file");
    }
    std::string text;
    for (const UCHAR byte : sum) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

std::optional<std::string> read_file(const fs::path& file) {
    const HANDLE opened =
        CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    const DWORD error = GetLastError();
    if (opened == INVALID_HANDLE_VALUE) {
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) {
            return std::nullopt;
        }
        fail("cannot read " + to_utf8(file.wstring()), error);
    }
    const OwnedHandle owned(opened);
    LARGE_INTEGER size{};
    GetFileSizeEx(opened, &size);
    std::string bytes(static_cast<std::size_t>(size.QuadPart), '\0');
    DWORD read = 0;
    if (ReadFile(opened, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) == FALSE ||
        read != bytes.size()) {
        fail("cannot read " + to_utf8(file.wstring()), GetLastError());
    }
    return bytes;
}

void write_file(const fs::path& file, std::string_view bytes) {
    const HANDLE opened = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    if (opened == INVALID_HANDLE_VALUE) {
        fail("cannot write " + to_utf8(file.wstring()), GetLastError());
    }
    const OwnedHandle owned(opened);
    DWORD written = 0;
    if (WriteFile(opened, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) ==
            FALSE ||
        written != bytes.size()) {
        fail("cannot write " + to_utf8(file.wstring()), GetLastError());
    }
}

} // namespace corvane::tool
