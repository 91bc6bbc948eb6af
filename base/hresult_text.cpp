#include "base/hresult_text.h"

#include <cstdio>
#include <cwchar>

namespace corvane {
namespace {

constexpr std::size_t kFallbackLength = 32;

void remove_line_end(wchar_t* text, std::size_t length) {
    if (length >= 2 && text[length - 1] == L'\n') {
        text[--length] = L'\0';
        if (text[length - 1] == L'\r') {
            text[--length] = L'\0';
        }
    }
}

bool is_dispatch_error(unsigned long code) {
    return code >= 0x80040200 && code <= 0x8004FFFF && (code & 0xFFFF) != 0x200;
}

} // namespace

HresultText hresult_text(HRESULT hr) noexcept {
    const auto code = static_cast<unsigned long>(hr);
    wchar_t* text = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<LPWSTR>(&text),
        0, nullptr);
    if (length != 0) {
        remove_line_end(text, length);
        return HresultText(LocalMemory<wchar_t>(text));
    }
    text = static_cast<wchar_t*>(LocalAlloc(LPTR, kFallbackLength * sizeof(wchar_t)));
    if (text != nullptr) {
        if (is_dispatch_error(code)) {
            _snwprintf(text, kFallbackLength - 1, L"IDispatch error #%d",
                       static_cast<int>((code - 0x200) & 0xFFFF));
        } else {
            _snwprintf(text, kFallbackLength - 1, L"Unknown error 0x%0lX", code);
        }
    }
    return HresultText(LocalMemory<wchar_t>(text));
}

void log_result(const DebugLog& log, const wchar_t* message, HRESULT hr,
                std::int32_t level) noexcept {
    if (log.writes(level)) {
        log.log(level, message, hresult_text(hr).c_str());
    }
}

} // namespace corvane
