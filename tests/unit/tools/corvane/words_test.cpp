#include "tools/corvane/words.h"

#include <gtest/gtest.h>

namespace corvane::tool {
namespace {

TEST(SplitWords, LeavesTheToolAllOfThemWithoutDashes) {
    const SplitWords split = split_words({L"check", L"--json", L"app.exe"});
    EXPECT_EQ(split.own, (Words{L"check", L"--json", L"app.exe"}));
    EXPECT_EQ(split.behind, Words());
}

TEST(SplitWords, SplitsAtTheFirstDashesOnly) {
    const SplitWords split =
        split_words({L"run", L"--tree", L"--", L"app.exe", L"--", L"--tree", L""});
    EXPECT_EQ(split.own, (Words{L"run", L"--tree"}));
    EXPECT_EQ(split.behind, (Words{L"app.exe", L"--", L"--tree", L""}));
}

TEST(SplitWords, TakesNothingForNothing) {
    EXPECT_EQ(split_words({}).own, Words());
    EXPECT_EQ(split_words({L"--"}).own, Words());
    EXPECT_EQ(split_words({L"--"}).behind, Words());
}

} // namespace
} // namespace corvane::tool
