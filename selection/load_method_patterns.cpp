#include "base/debug_log.h"
#include "selection/method_patterns.h"

#include <windows.h>

namespace corvane {
namespace {

constexpr const wchar_t* kVariable = L"CORVANE_METHODS";

std::wstring variable() {
    std::wstring value;
    const DWORD size = GetEnvironmentVariableW(kVariable, nullptr, 0); // terminator included
    value.resize(size);
    value.resize(GetEnvironmentVariableW(kVariable, value.data(), size));
    return value;
}

} // namespace

void load_method_patterns() {
    method_patterns.append(variable(), [](std::wstring_view pattern, const wchar_t* reason) {
        // A line is cut: of a long pattern the begin is enough.
        default_log.log(1, L"%s: \"%.200s\" is left out: %s", kVariable,
                        std::wstring(pattern).c_str(), reason);
    });
}

void report_patterns_never_matched() {
    for (const std::wstring& pattern : method_patterns.never_matched()) {
        default_log.log(1, L"%s: \"%.200s\" never matched a method", kVariable, pattern.c_str());
    }
}

} // namespace corvane
