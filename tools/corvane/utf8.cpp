#include "tools/corvane/utf8.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace corvane::tool {
namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;
constexpr bool kHasSurrogates = sizeof(wchar_t) == 2;

bool is_surrogate(std::uint32_t unit) {
    return unit >= 0xD800 && unit < 0xE000;
}

// The character at the place, which moves behind it.
std::uint32_t next_character(std::wstring_view wide, std::size_t& at) {
    const auto unit = static_cast<std::uint32_t>(wide[at++]);
    if (!is_surrogate(unit)) {
        return unit > 0x10FFFF ? kReplacement : unit;
    }
    const std::uint32_t next = at < wide.size() ? static_cast<std::uint32_t>(wide[at]) : 0;
    if (unit >= 0xDC00 || next < 0xDC00 || next >= 0xE000) {
        return kReplacement;
    }
    ++at;
    return 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00);
}

std::uint32_t next_character(std::string_view utf8, std::size_t& at) {
    const auto lead = static_cast<unsigned char>(utf8[at++]);
    const int more = lead < 0x80                   ? 0
                     : lead >= 0xC2 && lead < 0xE0 ? 1
                     : lead >= 0xE0 && lead < 0xF0 ? 2
                     : lead >= 0xF0 && lead < 0xF5 ? 3
                                                   : -1;
    if (more < 0) {
        return kReplacement;
    }
    std::uint32_t character = more == 0 ? lead : lead & (0x3Fu >> more);
    for (int i = 0; i < more; ++i, ++at) {
        const auto part = at < utf8.size() ? static_cast<unsigned char>(utf8[at]) : 0U;
        if ((part & 0xC0) != 0x80) {
            return kReplacement;
        }
        character = character << 6 | (part & 0x3Fu);
    }
    constexpr std::uint32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
    return character < kSmallest[more] || character > 0x10FFFF || is_surrogate(character)
               ? kReplacement
               : character;
}

} // namespace

std::string to_utf8(std::wstring_view wide) {
    std::string utf8;
    for (std::size_t at = 0; at < wide.size();) {
        const std::uint32_t character = next_character(wide, at);
        const int more = character < 0x80 ? 0 : character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
        constexpr std::uint32_t kLead[] = {0, 0xC0, 0xE0, 0xF0};
        utf8 += static_cast<char>(kLead[more] | character >> (6 * more));
        for (int i = more; i-- > 0;) {
            utf8 += static_cast<char>(0x80 | (character >> (6 * i) & 0x3F));
        }
    }
    return utf8;
}

std::wstring to_wide(std::string_view utf8) {
    std::wstring wide;
    for (std::size_t at = 0; at < utf8.size();) {
        const std::uint32_t character = next_character(utf8, at);
        if (kHasSurrogates && character >= 0x10000) {
            wide += static_cast<wchar_t>(0xD800 + ((character - 0x10000) >> 10));
            wide += static_cast<wchar_t>(0xDC00 + ((character - 0x10000) & 0x3FF));
        } else {
            wide += static_cast<wchar_t>(character);
        }
    }
    return wide;
}

} // namespace corvane::tool
