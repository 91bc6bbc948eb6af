#include "tools/corvane/console.h"

#include "tools/corvane/columns.h"
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

std::optional<std::size_t> width_of(DWORD stream) {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (GetConsoleScreenBufferInfo(GetStdHandle(stream), &info) == FALSE) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(std::max(info.srWindow.Right - info.srWindow.Left + 1, 1));
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

void write_paragraph(DWORD stream, std::string_view line, std::size_t hanging) {
    const auto width = width_of(stream);
    if (!width) {
        write(stream, std::string(line) + "\r\n");
        return;
    }
    // A line that fills the last column has an empty one behind it on some consoles.
    for (const std::string& part : wrapped(line, *width - 1, hanging)) {
        write(stream, part + "\r\n");
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

void print_paragraph(std::string_view line, std::size_t hanging) {
    write_paragraph(STD_OUTPUT_HANDLE, line, hanging);
}

void print_error(std::string_view line) {
    write_paragraph(STD_ERROR_HANDLE, "corvane: " + std::string(line), 2);
}

std::optional<std::size_t> console_width() {
    return width_of(STD_OUTPUT_HANDLE);
}

} // namespace corvane::tool
