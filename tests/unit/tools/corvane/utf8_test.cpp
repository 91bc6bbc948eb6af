#include "tools/corvane/utf8.h"

#include <gtest/gtest.h>

namespace corvane::tool {
namespace {

TEST(Utf8, HasEveryCharacter) {
    const std::wstring wide = L"a \u00e4 \u0416 \u20ac \U0001F600";
    const std::string utf8 = "a \xC3\xA4 \xD0\x96 \xE2\x82\xAC \xF0\x9F\x98\x80";
    EXPECT_EQ(to_utf8(wide), utf8);
    EXPECT_EQ(to_wide(utf8), wide);
}

TEST(Utf8, ReplacesWhatIsMalformed) {
    for (const char* const bad :
         {"\x80", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF5\x80\x80\x80", "\xC3"}) {
        EXPECT_EQ(to_wide(std::string("a") + bad).substr(0, 2), L"a\uFFFD") << bad;
    }
    const std::wstring lone = {L'a', static_cast<wchar_t>(0xD800), L'b'};
    EXPECT_EQ(to_utf8(lone), "a\xEF\xBF\xBD"
                             "b");
}

} // namespace
} // namespace corvane::tool
