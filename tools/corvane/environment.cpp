#include "tools/corvane/environment.h"

#include <algorithm>
#include <cwchar>
#include <cwctype>

namespace corvane::tool {
namespace {

std::wstring replaced(std::wstring text, std::wstring_view what, std::wstring_view with) {
    for (std::size_t at = text.find(what); at != text.npos;
         at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
    return text;
}

} // namespace

bool IgnoreCase::operator()(std::wstring_view left, std::wstring_view right) const {
    return std::ranges::lexicographical_compare(left, right, [](wchar_t a, wchar_t b) {
        return std::towupper(static_cast<std::wint_t>(a)) <
               std::towupper(static_cast<std::wint_t>(b));
    });
}

std::wstring value_of(const Environment& environment, std::wstring_view name) {
    const auto found = environment.find(name);
    return found == environment.end() ? std::wstring() : found->second;
}

Environment changed(Environment environment, const Changes& changes) {
    for (const auto& [name, value] : changes) {
        if (value) {
            environment[name] = *value;
        } else {
            environment.erase(name);
        }
    }
    return environment;
}

Environment parse_environment(const wchar_t* block) {
    Environment environment;
    for (const wchar_t* entry = block; *entry != L'\0'; entry += std::wcslen(entry) + 1) {
        const std::wstring text(entry);
        const std::size_t equals = text.find(L'=', 1); // "=C:=C:\folder" is named "=C:"
        if (equals != text.npos) {
            environment[text.substr(0, equals)] = text.substr(equals + 1);
        }
    }
    return environment;
}

std::wstring environment_block(const Environment& environment) {
    std::wstring block;
    for (const auto& [name, value] : environment) {
        block += name + L'=' + value + L'\0';
    }
    return block + L'\0';
}

std::wstring as_batch_file(const Changes& changes) {
    std::wstring text;
    for (const auto& [name, value] : changes) {
        text += L"set \"" + name + L'=' + replaced(value.value_or(L""), L"%", L"%%") + L"\"\r\n";
    }
    return text;
}

std::wstring as_powershell(const Changes& changes) {
    std::wstring text;
    for (const auto& [name, value] : changes) {
        text += value ? L"$env:" + name + L" = '" + replaced(*value, L"'", L"''") + L"'\r\n"
                      : L"Remove-Item Env:" + name + L" -ErrorAction Ignore\r\n";
    }
    return text;
}

std::wstring undoing(const Environment& before, const Changes& changes) {
    std::wstring text;
    for (const auto& change : changes) {
        const auto found = before.find(change.first);
        text += change.first + (found == before.end() ? L"" : L'=' + found->second) + L'\n';
    }
    return text;
}

} // namespace corvane::tool
