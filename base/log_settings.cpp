#include "base/log_settings.h"

namespace corvane {
namespace {

struct Range {
    const wchar_t* variable;
    std::uint64_t least;
    std::uint64_t most;
    std::uint64_t usual;
};

constexpr Range kLevel = {L"CORVANE_LOG_LEVEL", 0, 4, 3};
constexpr Range kLimit = {L"CORVANE_LOG_LIMIT_MB", 1, 1024, 10};
constexpr std::size_t kMostDigits = 9; // no value of them is too large for its type

std::optional<std::uint64_t> as_number(std::wstring_view text) {
    if (text.empty() || text.size() > kMostDigits) {
        return std::nullopt;
    }
    std::uint64_t number = 0;
    for (const wchar_t c : text) {
        if (c < L'0' || c > L'9') {
            return std::nullopt;
        }
        number = number * 10 + static_cast<std::uint64_t>(c - L'0');
    }
    return number;
}

std::uint64_t value_of(const std::optional<std::wstring>& text, const Range& range,
                       std::vector<std::wstring>& complaints) {
    if (!text || text->empty()) {
        return range.usual;
    }
    const auto number = as_number(*text);
    if (number && *number >= range.least && *number <= range.most) {
        return *number;
    }
    complaints.push_back(std::wstring(range.variable) + L" is \"" + *text +
                         L"\", which is no number from " + std::to_wstring(range.least) + L" to " +
                         std::to_wstring(range.most) + L"; " + std::to_wstring(range.usual) +
                         L" is used");
    return range.usual;
}

bool is_separator(wchar_t c) {
    return c == L'\\' || c == L'/';
}

bool is_letter(wchar_t c) {
    return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z');
}

// With a drive and its root, or with a server. All others depend on the program's current folder.
bool is_absolute(std::wstring_view path) {
    return (path.size() > 2 && is_separator(path[0]) && is_separator(path[1])) ||
           (path.size() > 3 && is_letter(path[0]) && path[1] == L':' && is_separator(path[2]));
}

std::wstring with_process(std::wstring path, std::uint32_t process) {
    constexpr std::wstring_view kProcess = L"{pid}";
    const std::wstring id = std::to_wstring(process);
    for (std::size_t at = path.find(kProcess); at != path.npos; at = path.find(kProcess, at)) {
        path.replace(at, kProcess.size(), id);
    }
    return path;
}

constexpr std::wstring_view kLineEnds = L"\r\n";
constexpr char32_t kReplacement = 0xFFFD;

bool is_high_surrogate(char32_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}

bool is_low_surrogate(char32_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

void append_utf8(std::string& bytes, char32_t character) {
    const auto put = [&bytes](char32_t byte) { bytes += static_cast<char>(byte); };
    const auto put_tail = [&](int shift) { put(0x80 | ((character >> shift) & 0x3F)); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | character >> 6);
        put_tail(0);
    } else if (character < 0x10000) {
        put(0xE0 | character >> 12);
        put_tail(6);
        put_tail(0);
    } else {
        put(0xF0 | character >> 18);
        put_tail(12);
        put_tail(6);
        put_tail(0);
    }
}

void append_utf8(std::string& bytes, std::wstring_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t character = static_cast<char32_t>(text[i]);
        if (is_high_surrogate(character) && i + 1 < text.size() &&
            is_low_surrogate(static_cast<char32_t>(text[i + 1]))) {
            const auto low = static_cast<char32_t>(text[++i]);
            character = 0x10000 + ((character - 0xD800) << 10) + (low - 0xDC00);
        } else if (is_high_surrogate(character) || is_low_surrogate(character) ||
                   character > 0x10FFFF) {
            character = kReplacement;
        }
        append_utf8(bytes, character);
    }
}

} // namespace

LogSettings read_log_settings(const LogVariables& variables, std::uint32_t process) {
    LogSettings settings;
    settings.level =
        static_cast<std::int32_t>(value_of(variables.level, kLevel, settings.complaints));
    settings.limit = value_of(variables.limit, kLimit, settings.complaints) << 20;
    if (variables.file && is_absolute(*variables.file)) {
        settings.file = with_process(*variables.file, process);
    } else if (variables.file && !variables.file->empty()) {
        settings.complaints.push_back(L"CORVANE_LOG_FILE is \"" + *variables.file +
                                      L"\", which is no full path; no file is written");
    }
    return settings;
}

std::string log_record(std::wstring_view start, std::wstring_view line) {
    line = line.substr(0, line.find_last_not_of(kLineEnds) + 1); // npos + 1 is 0
    std::string record;
    append_utf8(record, start);
    for (;;) {
        const std::size_t end = line.find_first_of(kLineEnds);
        append_utf8(record, line.substr(0, end));
        record += "\r\n";
        if (end == line.npos) {
            return record;
        }
        line.remove_prefix(end + (line.substr(end).starts_with(L"\r\n") ? 2 : 1));
        record += "    ";
    }
}

} // namespace corvane
