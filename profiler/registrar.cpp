#include "profiler/registrar.h"

#include <memory>
#include <type_traits>

namespace corvane {
namespace {

struct KeyCloser {
    void operator()(HKEY key) const noexcept { RegCloseKey(key); }
};
using OwnedKey = std::unique_ptr<std::remove_pointer_t<HKEY>, KeyCloser>;

LSTATUS set_string(HKEY key, const wchar_t* name, const std::wstring& text) {
    const auto bytes = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
    return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()), bytes);
}

// `path` is the parent's; `made` is null below a key that is new itself.
LSTATUS write_below(HKEY parent, const std::wstring& path, const RegistryKey& key,
                    NewRegistryKeys* made) {
    for (const auto& [name, text] : key.values) {
        if (const LSTATUS status = set_string(parent, name.c_str(), text)) {
            return status;
        }
    }
    for (const RegistryKey& child : key.keys) {
        const std::wstring child_path = path.empty() ? child.name : path + L'\\' + child.name;
        if (made != nullptr) {
            made->begin(child_path); // before it is there, so that it cannot be there unknown
        }
        HKEY opened = nullptr;
        DWORD disposition = 0;
        const LSTATUS created =
            RegCreateKeyExW(parent, child.name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                            KEY_READ | KEY_WRITE, nullptr, &opened, &disposition);
        const bool is_new = created == ERROR_SUCCESS && disposition == REG_CREATED_NEW_KEY;
        if (made != nullptr && !is_new) {
            made->forget_last();
        }
        if (created != ERROR_SUCCESS) {
            return created;
        }
        const OwnedKey owned(opened);
        if (child.default_value) {
            if (const LSTATUS status = set_string(opened, nullptr, *child.default_value)) {
                return status;
            }
        }
        if (const LSTATUS status =
                write_below(opened, child_path, child, is_new ? nullptr : made)) {
            return status;
        }
    }
    return ERROR_SUCCESS;
}

LSTATUS remove_below(HKEY parent, const RegistryKey& key) {
    LSTATUS result = ERROR_SUCCESS;
    const auto note = [&result](LSTATUS status) {
        if (result == ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND) {
            result = status;
        }
    };
    for (const RegistryKey& child : key.keys) {
        if (!child.keep) {
            note(RegDeleteTreeW(parent, child.name.c_str()));
            continue;
        }
        HKEY opened = nullptr;
        const LSTATUS status =
            RegOpenKeyExW(parent, child.name.c_str(), 0, KEY_READ | KEY_WRITE, &opened);
        if (status == ERROR_SUCCESS) {
            const OwnedKey owned(opened);
            for (const auto& value : child.values) {
                note(RegDeleteValueW(opened, value.first.c_str()));
            }
            note(remove_below(opened, child));
        } else {
            note(status);
        }
    }
    return result;
}

} // namespace

NewRegistryKeys::~NewRegistryKeys() {
    for (const std::wstring& path : paths_) {
        RegDeleteTreeW(HKEY_CLASSES_ROOT, path.c_str());
    }
}

HRESULT write_registry_keys(const RegistryKey& root, NewRegistryKeys& made) {
    // The macro evaluates it twice.
    const LSTATUS status = write_below(HKEY_CLASSES_ROOT, L"", root, &made);
    return HRESULT_FROM_WIN32(status);
}

HRESULT remove_registry_keys(const RegistryKey& root) noexcept {
    const LSTATUS status = remove_below(HKEY_CLASSES_ROOT, root);
    return HRESULT_FROM_WIN32(status);
}

} // namespace corvane
