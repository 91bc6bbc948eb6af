#include "tools/corvane/terminal.h"

#include "tools/corvane/utf8.h"

#include <windows.h>

namespace corvane::tool {
namespace {

constexpr ULONGLONG kProgressInterval = 200; // ms

void write_error(std::string_view text) {
    DWORD written = 0;
    const std::wstring wide = to_wide(text);
    WriteConsoleW(GetStdHandle(STD_ERROR_HANDLE), wide.data(), static_cast<DWORD>(wide.size()),
                  &written, nullptr);
}

} // namespace

bool enable_colours() {
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    return GetEnvironmentVariableW(L"NO_COLOR", nullptr, 0) == 0 &&
           GetConsoleMode(output, &mode) != FALSE &&
           SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
}

ProgressLine::ProgressLine() {
    DWORD mode = 0;
    is_shown_ = GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != FALSE;
    last_ = GetTickCount64(); // short work shows none
}

ProgressLine::~ProgressLine() {
    if (length_ != 0) {
        write_error('\r' + std::string(length_, ' ') + '\r');
    }
}

void ProgressLine::show(std::string_view text) {
    const ULONGLONG now = GetTickCount64();
    if (!is_shown_ || now - last_ < kProgressInterval) {
        return;
    }
    last_ = now;
    std::string line = "\r";
    line += text;
    line.append(length_ > text.size() ? length_ - text.size() : 0, ' ');
    length_ = text.size();
    write_error(line);
}

std::string coloured(std::string_view text, Colour colour, bool has_colours) {
    if (!has_colours || colour == Colour::kPlain) {
        return std::string(text);
    }
    const char* const code = colour == Colour::kGood      ? "\x1B[32m"
                             : colour == Colour::kWarning ? "\x1B[33m"
                             : colour == Colour::kBad     ? "\x1B[31m"
                                                          : "\x1B[90m";
    return std::string(code).append(text).append("\x1B[0m");
}

} // namespace corvane::tool
