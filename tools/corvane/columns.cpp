#include "tools/corvane/columns.h"

#include <algorithm>

namespace corvane::tool {
namespace {

bool begins_character(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

// The bytes of that many characters, or of all.
std::size_t bytes_of(std::string_view text, std::size_t characters) {
    std::size_t at = 0;
    for (; at < text.size(); ++at) {
        if (begins_character(text[at]) && characters-- == 0) {
            return at;
        }
    }
    return at;
}

// Where a line that may have so many bytes ends best.
std::size_t break_of(std::string_view text, std::size_t most) {
    constexpr std::string_view kBehind = ",;.:+<";
    const std::size_t blank = text.substr(0, most + 1).rfind(' ');
    if (blank != text.npos && blank > most / 2) {
        return blank;
    }
    std::size_t sign = text.substr(0, most).find_last_of(kBehind);
    if (sign != text.npos && sign > 0 && text[sign] == '.' && text[sign - 1] == ':') {
        --sign; // "::.ctor"
    }
    return sign != text.npos && sign >= most / 2 ? sign + 1 : most;
}

} // namespace

std::size_t width_of(std::string_view utf8) {
    return static_cast<std::size_t>(std::ranges::count_if(utf8, begins_character));
}

std::string padded(std::string text, std::size_t width) {
    const std::size_t own = width_of(text);
    text.append(own < width ? width - own : 0, ' ');
    return text;
}

std::vector<std::string> wrapped(std::string_view text, std::size_t width, std::size_t hanging) {
    constexpr std::size_t kLeast = 8; // of a narrower column more would be broken than shown
    std::vector<std::string> lines;
    std::string blanks;
    for (;;) {
        const std::size_t room = std::max(width - std::min(width, blanks.size()), kLeast);
        const std::size_t most = bytes_of(text, room);
        if (most == text.size()) {
            lines.push_back(blanks + std::string(text));
            return lines;
        }
        const std::size_t end = break_of(text, most);
        lines.push_back(blanks + std::string(text.substr(0, end)));
        text.remove_prefix(end);
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
        blanks.assign(hanging, ' ');
    }
}

} // namespace corvane::tool
