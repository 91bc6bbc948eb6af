// The program that the tests of the debugger run; its argument says what it does.
#include "base/log_file.h"

#include <windows.h>

#include <string>
#include <string_view>

int main(int count, char** arguments) {
    const std::string_view what = count > 1 ? arguments[1] : "";
    if (what == "write") {
        OutputDebugStringW(L"wide B\u00fccher \u0416");
        OutputDebugStringW(L"");
        OutputDebugStringW(std::wstring(3000, L'x').c_str());
        OutputDebugStringA("narrow B\xfc"
                           "cher");
    } else if (what == "break") {
        DebugBreak();
    } else if (what == "handle") {
        // What a runtime does all the time: it raises exceptions that it handles itself.
        AddVectoredExceptionHandler(1, [](EXCEPTION_POINTERS*) -> LONG { ExitProcess(12); });
        RaiseException(0xE0000001, 0, 0, nullptr);
    } else if (what == "is debugged") {
        return IsDebuggerPresent() != FALSE ? 1 : 0;
    } else if (what == "append" && count == 5) {
        const std::string path = arguments[2];
        corvane::LogFile file({path.begin(), path.end()}, std::stoull(arguments[3])); // ASCII
        for (int i = 0; i < std::stoi(arguments[4]); ++i) {
            const std::wstring line = L"line " + std::to_wstring(i) + L' ' + std::wstring(30, L'x');
            if (!file.append(line).empty()) {
                return 1;
            }
        }
    } else if (what == "sleep") {
        Sleep(INFINITE);
    }
    return 0;
}
