#include "base/debug_log.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <exception>

namespace corvane {

constinit DebugLog default_log;

namespace {

// The counted Microsoft forms: they cut without an error and keep that runtime's meaning of %s.
int format_into(wchar_t* buffer, const wchar_t* format, std::va_list arguments) {
    return _vsnwprintf(buffer, kMaxLogLine, format, arguments);
}
int format_into(char* buffer, const char* format, std::va_list arguments) {
    return _vsnprintf(buffer, kMaxLogLine, format, arguments);
}

void append_thread_id(std::wstring& text) {
    text += std::to_wstring(GetCurrentThreadId());
}
void append_thread_id(std::string& text) {
    text += std::to_string(GetCurrentThreadId());
}

template <class Char>
std::basic_string<Char> line_start(const std::basic_string<Char>& prefix) {
    std::basic_string<Char> start;
    append_thread_id(start);
    start += Char(' ');
    start += prefix;
    return start;
}

template <class Char>
void write_formatted(const std::basic_string<Char>& prefix, const Char* format,
                     std::va_list arguments) noexcept {
    try {
        const std::basic_string<Char> full_format = line_start(prefix) + format;
        Char line[kMaxLogLine + 2] = {};
        format_into(line, full_format.c_str(), arguments);
        send_to_log(line);
    } catch (const std::exception&) {
        // Out of memory: the program that is watched goes on without this line.
    }
}

template <class Char>
std::basic_string<Char> joined_prefix(std::basic_string_view<Char> tag,
                                      std::basic_string_view<Char> scope,
                                      std::basic_string_view<Char> name) {
    std::basic_string<Char> prefix;
    prefix += Char('[');
    prefix += tag;
    prefix += Char(']');
    prefix += scope;
    prefix += Char(':');
    prefix += name;
    for (const char c : std::string_view("() : ")) {
        prefix += static_cast<Char>(c);
    }
    return prefix;
}

} // namespace

void DebugLog::log(std::int32_t level, const wchar_t* format, ...) const noexcept {
    if (!writes(level)) {
        return;
    }
    std::va_list arguments;
    va_start(arguments, format);
    write_formatted(prefix_, format, arguments);
    va_end(arguments);
}

void NarrowDebugLog::log_narrow(std::int32_t level, const char* format, ...) const noexcept {
    if (!writes(level)) {
        return;
    }
    std::va_list arguments;
    va_start(arguments, format);
    write_formatted(prefix_, format, arguments);
    va_end(arguments);
}

void NarrowDebugLog::log_line_narrow(std::string_view message) const noexcept {
    if (!writes(kLineLevel)) {
        return;
    }
    try {
        send_to_log((line_start(prefix_) += message).c_str());
    } catch (const std::exception&) {
        // As above.
    }
}

std::wstring as_format_text(std::wstring_view text) {
    std::wstring result;
    for (const wchar_t c : text) {
        result.append(c == L'%' ? 2 : 1, c);
    }
    return result;
}

std::wstring make_prefix(std::wstring_view tag, std::wstring_view scope, std::wstring_view name) {
    return joined_prefix(tag, scope, name);
}

std::string make_prefix(std::string_view tag, std::string_view scope, std::string_view name) {
    return joined_prefix(tag, scope, name);
}

} // namespace corvane
