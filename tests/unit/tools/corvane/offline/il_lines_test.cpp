#include "tools/corvane/offline/il_lines.h"

#include <gtest/gtest.h>

#include <sstream>

namespace corvane::tool {
namespace {

// A letter is a line.
std::vector<IlLine> lines(const std::string& letters) {
    std::vector<IlLine> all;
    for (const char letter : letters) {
        all.push_back({.text = std::string(1, letter), .meaning = std::string(1, letter)});
    }
    return all;
}

// Both sides, "." where one has no line.
std::string aligned(const std::string& before, const std::string& after) {
    std::string upper;
    std::string lower;
    for (const LinePair& pair : align(lines(before), lines(after))) {
        upper += pair.before ? before[*pair.before] : '.';
        lower += pair.after ? after[*pair.after] : '.';
    }
    return upper + ' ' + lower;
}

TEST(Align, PairsWhatIsTheSame) {
    EXPECT_EQ(aligned("", ""), " ");
    EXPECT_EQ(aligned("abc", "abc"), "abc abc");
    EXPECT_EQ(aligned("", "ab"), ".. ab");
    EXPECT_EQ(aligned("ab", ""), "ab ..");
    EXPECT_EQ(aligned("abc", "xabyc"), ".ab.c xabyc");
    EXPECT_EQ(aligned("abc", "bcx"), "abc. .bcx");
}

TEST(Align, PutsLinesSideBySideThatReplaceEachOther) {
    EXPECT_EQ(aligned("abc", "axc"), "abc axc");
    EXPECT_EQ(aligned("abr", "abxyz"), "abr.. abxyz");
    EXPECT_EQ(aligned("abcd", "xy"), "abcd xy..");
}

// What is injected stands in front, and may look like the method's own code.
TEST(Align, TakesTheLinesNextToEachOther) {
    EXPECT_EQ(aligned("abc", "axabc"), "..abc axabc");
    EXPECT_EQ(aligned("abcd", "abxabcd"), "...abcd abxabcd");
}

TEST(Align, FindsTheFewestDifferences) {
    const std::string own(300, 'o');
    const std::string pairs = aligned("m" + own + "r", "mppp" + own + "sr");
    EXPECT_EQ(pairs, "m..." + own + ".r mppp" + own + "sr");
}

TEST(Align, GivesUpOnBodiesThatHaveLittleInCommon) {
    const std::string before(3'000, 'a');
    const std::string after(3'000, 'b');
    EXPECT_EQ(align(lines(before + "c"), lines(after + "c")).size(), 3'001U);
}

} // namespace
} // namespace corvane::tool
