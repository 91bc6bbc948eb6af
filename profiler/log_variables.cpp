#include "profiler/log_variables.h"

#include <windows.h>

namespace corvane {
namespace {

// What the process has now: the copy of the C runtime has no characters beyond the code page.
std::optional<std::wstring> variable(const wchar_t* name) {
    std::wstring value;
    DWORD length = 1; // with the terminator, where there is not enough room
    while (length > value.size()) {
        value.resize(length);
        SetLastError(ERROR_SUCCESS);
        length = GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
        if (length == 0 && GetLastError() != ERROR_SUCCESS) {
            return std::nullopt;
        }
    }
    value.resize(length);
    return value;
}

} // namespace

LogVariables read_log_variables() {
    return {variable(L"CORVANE_LOG_FILE"), variable(L"CORVANE_LOG_LEVEL"),
            variable(L"CORVANE_LOG_LIMIT_MB")};
}

} // namespace corvane
