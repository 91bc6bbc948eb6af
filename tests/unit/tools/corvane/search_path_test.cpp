#include "tools/corvane/search_path.h"

#include <gtest/gtest.h>

namespace corvane::tool {
namespace {

TEST(FoldersOf, AreBetweenSemicolonsAndMayBeQuoted) {
    EXPECT_EQ(folders_of(L"C:\\a;\"C:\\b c\";;D:\\"), (Words{L"C:\\a", L"C:\\b c", L"D:\\"}));
    EXPECT_TRUE(folders_of(L"").empty());
}

// A script without an extension beside a program of its name is for other systems.
TEST(Candidates, AreProgramsFirst) {
    EXPECT_EQ(candidates(L"app", {L"C:\\a", L"D:\\"}),
              (Words{L"C:\\a\\app.exe", L"D:\\app.exe", L"C:\\a\\app", L"D:\\app"}));
}

TEST(Candidates, MayHaveDotsInTheirNames) {
    EXPECT_EQ(candidates(L"Shop.Api", {L"C:\\a"}),
              (Words{L"C:\\a\\Shop.Api", L"C:\\a\\Shop.Api.exe"}));
    EXPECT_EQ(candidates(L"x\\Shop.Api", {L"C:\\a"}), (Words{L"x\\Shop.Api", L"x\\Shop.Api.exe"}));
}

TEST(Candidates, AreInNoOtherFolderThanOneThatIsNamed) {
    EXPECT_EQ(candidates(L".\\app", {L"C:\\a"}), (Words{L".\\app.exe", L".\\app"}));
    EXPECT_EQ(candidates(L"C:app", {L"C:\\a"}), (Words{L"C:app.exe", L"C:app"}));
    EXPECT_EQ(candidates(L"a.b/app", {}), (Words{L"a.b/app.exe", L"a.b/app"}));
}

TEST(PossiblePrograms, EndAtAnyBlankUnlessTheyAreQuoted) {
    EXPECT_EQ(possible_programs(L"C:\\My Shop\\a.exe --x"),
              (Words{L"C:\\My", L"C:\\My Shop\\a.exe", L"C:\\My Shop\\a.exe --x"}));
    EXPECT_EQ(possible_programs(L"a.exe"), Words{L"a.exe"});
    EXPECT_EQ(possible_programs(L"\"C:\\My Shop\\a.exe\" --x"), Words());
    EXPECT_EQ(possible_programs(L""), Words());
}

} // namespace
} // namespace corvane::tool
