#include "tests/support/marked_lines.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

using Lines = std::vector<std::string>;

const Lines kFirst = {"both", "first", "both too", "changed, first"};
const Lines kSecond = {"both", "both too", "changed, second", "second"};
const Lines kMarked = {" both",           "-first",           " both too",
                       "-changed, first", "+changed, second", "+second"};

TEST(MarkedLines, TellTheVariantsApart) {
    EXPECT_EQ(mark_lines(kFirst, kSecond), kMarked);
    EXPECT_EQ(mark_lines(kFirst, {}), Lines({"-both", "-first", "-both too", "-changed, first"}));
    EXPECT_EQ(mark_lines(kFirst, kFirst),
              Lines({" both", " first", " both too", " changed, first"}));
}

TEST(MarkedLines, GiveEachVariantBack) {
    EXPECT_EQ(lines_marked(kMarked, kFirstMark), kFirst);
    EXPECT_EQ(lines_marked(kMarked, kSecondMark), kSecond);
}

TEST(MarkedLines, EndAtEitherLineEnd) {
    EXPECT_EQ(lines_of("one\r\n\r\ntwo\nthree"), Lines({"one", "", "two", "three"}));
    EXPECT_EQ(joined_lines({"one", "two"}), "one\ntwo\n");
}

} // namespace
} // namespace corvane
