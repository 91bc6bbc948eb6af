#include "tools/corvane/words.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include "base/local_memory.h"

#include <shellapi.h>
#endif

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

TEST(BeforeNothing, IsWhatAnEmptyValueWasMeantFor) {
    EXPECT_EQ(before_nothing({L"run", L"--flame", L"", L"--tree"}), L"--flame");
    EXPECT_EQ(before_nothing({L"run", L"--flame="}), L"--flame=");
    EXPECT_EQ(before_nothing({L""}), L"");
    EXPECT_EQ(before_nothing({L"run", L"--otlp=http://c/?a=", L"--tree", L"a=", L"--", L"="}),
              std::nullopt);
    EXPECT_EQ(before_nothing({}), std::nullopt);
}

TEST(CommandLine, QuotesOnlyWhatNeedsIt) {
    EXPECT_EQ(command_line({L"plain", L"/x", L"C:\\folder\\"}), L"plain /x C:\\folder\\");
    EXPECT_EQ(command_line({L"", L"a b\\", L"a\"b"}), L"\"\" \"a b\\\\\" \"a\\\"b\"");
}

#ifdef _WIN32
const Words kHardWords = {L"plain",       L"",
                          L"two words",   L"tab\there",
                          L"\"quoted\"",  L"C:\\folder\\",
                          L"a\\\"b",      L"C:\\a folder\\",
                          L"a\\\\\"b c",  L"\\\\server\\share",
                          L"100% & more", L"B\u00fccher \u0416"};

TEST(CommandLine, IsSplitBySystemIntoTheSameWords) {
    Words words = kHardWords;
    words.insert(words.begin(), L"program.exe");
    int count = 0;
    const LocalMemory<LPWSTR> split(CommandLineToArgvW(command_line(words).c_str(), &count));
    ASSERT_NE(split, nullptr);
    EXPECT_EQ(Words(split.get(), split.get() + count), words);
}
#endif

} // namespace
} // namespace corvane::tool
