#include "tools/corvane/columns.h"

#include <gtest/gtest.h>

namespace corvane::tool {
namespace {

using Lines = std::vector<std::string>;

TEST(Columns, CountCharactersAndNotBytes) {
    EXPECT_EQ(width_of(""), 0U);
    EXPECT_EQ(width_of("Käse"), 4U);
    EXPECT_EQ(padded("Käse", 6), "Käse  ");
    EXPECT_EQ(padded("cheese", 3), "cheese");
}

TEST(Wrapped, KeepsAShortTextAsItIs) {
    EXPECT_EQ(wrapped("", 10, 2), Lines{""});
    EXPECT_EQ(wrapped("0123456789", 10, 2), Lines{"0123456789"});
    EXPECT_EQ(wrapped("éééééééééé", 10, 2), Lines{"éééééééééé"});
}

TEST(Wrapped, BreaksAtABlankWhichIsNotShown) {
    EXPECT_EQ(wrapped("void Add(int32, string)", 16, 2), (Lines{"void Add(int32,", "  string)"}));
    // A blank far in front is not worth half a line.
    EXPECT_EQ(wrapped("int Namespace.Type::Member", 20, 2),
              (Lines{"int Namespace.Type::", "  Member"}));
}

TEST(Wrapped, BreaksBehindAPunctuationMarkOrAnywhere) {
    EXPECT_EQ(wrapped("Namespace.Type", 12, 0), (Lines{"Namespace.", "Type"}));
    EXPECT_EQ(wrapped("Type::.ctor()", 8, 0), (Lines{"Type::", ".ctor()"}));
    EXPECT_EQ(wrapped("0123456789abcdef", 10, 2), (Lines{"0123456789", "  abcdef"}));
    EXPECT_EQ(wrapped("ééééééééééé", 10, 0), (Lines{"éééééééééé", "é"}));
}

TEST(Wrapped, EndsWhateverTheWidth) {
    for (const std::size_t width : {0U, 1U, 7U, 8U, 9U}) {
        for (const std::size_t hanging : {0U, 5U, 100U}) {
            std::string all;
            for (const std::string& line : wrapped("0123456789abcdefghij", width, hanging)) {
                all += line.substr(line.find_first_not_of(' '));
            }
            EXPECT_EQ(all, "0123456789abcdefghij");
        }
    }
}

} // namespace
} // namespace corvane::tool
