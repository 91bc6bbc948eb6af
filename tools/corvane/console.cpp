#include "tools/corvane/console.h"

#include "tools/corvane/utf8.h"

#include <windows.h>

#include <algorithm>
#include <string>

namespace corvane::tool {
namespace {

bool is_console(HANDLE handle) {
    DWORD mode = 0;
    return GetConsoleMode(handle, &mode) != FALSE;
}

// A reader that has gone is no failure of the command.
void write(DWORD stream, std::string_view text) {
    const HANDLE handle = GetStdHandle(stream);
    DWORD written = 0;
    if (!is_console(handle)) {
        while (!text.empty() && WriteFile(handle, text.data(), static_cast<DWORD>(text.size()),
                                          &written, nullptr) != FALSE) {
            text.remove_prefix(written);
        }
        return;
    }
    constexpr std::size_t kAtOnce = 8'000; // a console takes no text of any length
    const std::wstring wide = to_wide(text);
    for (std::size_t at = 0; at < wide.size(); at += kAtOnce) {
        WriteConsoleW(handle, wide.data() + at,
                      static_cast<DWORD>(std::min(kAtOnce, wide.size() - at)), &written, nullptr);
    }
}

} // namespace

void print(std::string_view text) {
    write(STD_OUTPUT_HANDLE, text);
}

void print_line(std::string_view text) {
    print(std::string(text) + "\r\n");
}

void print_to_error(std::string_view text) {
    write(STD_ERROR_HANDLE, text);
}

void print_error(std::string_view line) {
    print_to_error("corvane: " + std::string(line) + "\r\n");
}

bool prints_on_console() {
    return is_console(GetStdHandle(STD_OUTPUT_HANDLE));
}

} // namespace corvane::tool
