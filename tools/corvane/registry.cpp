#include "tools/corvane/registry.h"

#include "base/hresult_text.h"
#include "tools/corvane/finding_kinds.h"
#include "tools/corvane/utf8.h"

#include <cwchar>
#include <memory>
#include <utility>

namespace corvane::tool {
namespace {

struct KeyCloser {
    void operator()(HKEY key) const noexcept { RegCloseKey(key); }
};
using OwnedKey = std::unique_ptr<std::remove_pointer_t<HKEY>, KeyCloser>;

// Null if there is none.
OwnedKey open_key(HKEY root, const std::wstring& key) {
    HKEY opened = nullptr;
    const LSTATUS status =
        RegOpenKeyExW(root, key.c_str(), 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, &opened);
    if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND) {
        throw FailedFinding(unreadable_registry(
            to_utf8(key),
            to_utf8(hresult_text(HRESULT_FROM_WIN32(static_cast<DWORD>(status))).c_str())));
    }
    return OwnedKey(opened);
}

} // namespace

std::optional<Words> registry_texts(HKEY root, const std::wstring& key, const std::wstring& value) {
    const OwnedKey opened = open_key(root, key);
    DWORD type = 0;
    DWORD size = 0;
    if (!opened ||
        RegQueryValueExW(opened.get(), value.c_str(), nullptr, &type, nullptr, &size) !=
            ERROR_SUCCESS ||
        (type != REG_SZ && type != REG_EXPAND_SZ && type != REG_MULTI_SZ)) {
        return std::nullopt;
    }
    // Nobody promises the zeros at the end.
    std::wstring data(size / sizeof(wchar_t) + 2, L'\0');
    size = static_cast<DWORD>((data.size() - 2) * sizeof(wchar_t));
    if (RegQueryValueExW(opened.get(), value.c_str(), nullptr, nullptr,
                         reinterpret_cast<BYTE*>(data.data()), &size) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    Words texts;
    if (type != REG_MULTI_SZ) {
        texts.emplace_back(data.c_str());
        return texts;
    }
    for (const wchar_t* text = data.c_str(); *text != L'\0'; text += std::wcslen(text) + 1) {
        texts.emplace_back(text);
    }
    return texts;
}

std::optional<std::wstring> registry_text(HKEY root, const std::wstring& key,
                                          const std::wstring& value) {
    const auto texts = registry_texts(root, key, value);
    return !texts || texts->empty() ? std::nullopt : std::optional(texts->front());
}

Words registry_values(HKEY root, const std::wstring& key) {
    constexpr DWORD kLongest = 16'384; // characters of a name
    Words names;
    const OwnedKey opened = open_key(root, key);
    for (DWORD i = 0; opened; ++i) {
        std::wstring name(kLongest, L'\0');
        DWORD length = kLongest;
        if (RegEnumValueW(opened.get(), i, name.data(), &length, nullptr, nullptr, nullptr,
                          nullptr) != ERROR_SUCCESS) {
            break;
        }
        name.resize(length);
        names.push_back(std::move(name));
    }
    return names;
}

bool has_registry_key(HKEY root, const std::wstring& key) {
    return open_key(root, key) != nullptr;
}

} // namespace corvane::tool
