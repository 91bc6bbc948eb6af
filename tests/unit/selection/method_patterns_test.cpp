#include "selection/method_patterns.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace corvane {
namespace {

using Reported = std::vector<std::pair<std::wstring, std::wstring>>;
using Texts = std::vector<std::wstring>;

struct Patterns {
    explicit Patterns(std::wstring_view text) { append(text); }
    void append(std::wstring_view text) {
        patterns.append(text, [this](std::wstring_view pattern, const wchar_t* reason) {
            reported.emplace_back(pattern, reason);
        });
    }

    MethodPatterns patterns;
    Reported reported;
};

bool matches(std::wstring_view patterns, std::wstring_view name) {
    const Patterns read(patterns);
    EXPECT_EQ(read.reported, Reported());
    return read.patterns.matches(name);
}

bool may_match(std::wstring_view patterns, std::wstring_view type) {
    return Patterns(patterns).patterns.may_match_type(type);
}

TEST(MethodPatterns, CompareNamesExactly) {
    EXPECT_TRUE(matches(L"Shop.Cart.Add", L"Shop.Cart.Add"));
    EXPECT_FALSE(matches(L"Shop.Cart.Add", L"Shop.Cart.add"));
    EXPECT_FALSE(matches(L"Shop.Cart.Add", L"Shop.Cart.AddAll"));
    EXPECT_FALSE(matches(L"Shop.Cart.Add", L"My.Shop.Cart.Add"));
    EXPECT_FALSE(matches(L"Shop.Cart.Add", L"ShopXCart.Add")); // a dot is a dot
    EXPECT_TRUE(matches(L"Shop.Cart..ctor", L"Shop.Cart..ctor"));
    EXPECT_TRUE(matches(L"Shop.Cart+Line.Total", L"Shop.Cart+Line.Total"));
    EXPECT_FALSE(matches(L"Shop.Cart+Line.Total", L"Shop.Cart.Line.Total"));
    EXPECT_TRUE(matches(L"Caf\u00e9.\u03a9.M", L"Caf\u00e9.\u03a9.M"));
    EXPECT_FALSE(matches(L"Caf\u00e9.M", L"CAF\u00c9.M"));
}

TEST(MethodPatterns, TakeAStarForAnyRunOfCharacters) {
    EXPECT_TRUE(matches(L"Shop.Cart.*", L"Shop.Cart.Add"));
    EXPECT_TRUE(matches(L"Shop.Cart.*", L"Shop.Cart..ctor"));
    EXPECT_TRUE(matches(L"Shop.Cart.*", L"Shop.Cart.")); // an empty run
    EXPECT_FALSE(matches(L"Shop.Cart.*", L"Shop.Cart+Line.Total"));
    EXPECT_TRUE(matches(L"Shop.Cart*", L"Shop.Cart+Line.Total"));
    EXPECT_TRUE(matches(L"Shop.*.Reserve", L"Shop.Stock.Reserve"));
    EXPECT_TRUE(matches(L"Shop.*.Reserve", L"Shop.Deep.Stock+Part.Reserve"));
    EXPECT_FALSE(matches(L"Shop.*.Reserve", L"Shop.Reserve")); // both dots are asked for
    EXPECT_FALSE(matches(L"Shop.*.Reserve", L"Shop.Stock.Reserved"));
    EXPECT_TRUE(matches(L"*.Reserve", L"Shop.Stock.Reserve"));
    EXPECT_TRUE(matches(L"*a*b*", L"xxaxxbxx"));
    EXPECT_FALSE(matches(L"*a*b*", L"xxbxxaxx"));
    EXPECT_TRUE(matches(L"a*a", L"aa"));
    EXPECT_FALSE(matches(L"a*a", L"a")); // one letter does not serve twice
    EXPECT_TRUE(matches(L"*ab*ab", L"abab"));
    EXPECT_FALSE(matches(L"*ab*ab", L"ab"));
    EXPECT_TRUE(matches(L"*aab", L"aaab")); // the first place of "aa" is not the right one
    for (const wchar_t* const all : {L"*", L"**", L"****"}) {
        EXPECT_TRUE(matches(all, L"Shop.Cart.Add")) << all;
        EXPECT_TRUE(matches(all, L"")) << all;
    }
    EXPECT_TRUE(matches(L"a**b", L"a.b"));
    EXPECT_TRUE(matches(L"a***b", L"ab"));
}

TEST(MethodPatterns, AnswerAtOnceForManyStars) {
    std::wstring pattern;
    for (int i = 0; i < 300; ++i) {
        pattern += L"a*";
    }
    EXPECT_FALSE(matches(pattern + L"b", std::wstring(100'000, L'a')));
    EXPECT_TRUE(matches(pattern, std::wstring(100'000, L'a')));
}

TEST(MethodPatterns, AreDividedBySemicolons) {
    const Patterns read(L"A.B.C;D.E.F");
    EXPECT_TRUE(read.patterns.matches(L"A.B.C"));
    EXPECT_TRUE(read.patterns.matches(L"D.E.F"));
    EXPECT_FALSE(read.patterns.matches(L"A.B.C;D.E.F"));
    EXPECT_EQ(read.reported, Reported());
}

TEST(MethodPatterns, HaveNoBlanksAround) {
    const Patterns read(L" \t A.B.C \r\n; ! \tA.X.* ;");
    EXPECT_TRUE(read.patterns.matches(L"A.B.C"));
    EXPECT_FALSE(read.patterns.matches(L" A.B.C"));
    EXPECT_EQ(read.patterns.never_matched(), (Texts{L"! \tA.X.*"}));
    EXPECT_TRUE(matches(L"A.B c.D", L"A.B c.D")); // a blank inside is a part of it
}

TEST(MethodPatterns, MayBeMissing) {
    for (const wchar_t* const text : {L"", L" ", L";", L" ; ;;\t;"}) {
        const Patterns read(text);
        EXPECT_TRUE(read.patterns.empty()) << text;
        EXPECT_FALSE(read.patterns.matches(L"A.B.C")) << text;
        EXPECT_FALSE(read.patterns.may_match_type(L"A.B")) << text;
        EXPECT_EQ(read.reported, Reported()) << text;
        EXPECT_EQ(read.patterns.never_matched(), Texts()) << text;
    }
}

TEST(MethodPatterns, ExcludeWhereverTheExclusionStands) {
    for (const wchar_t* const text : {L"Shop.*;!Shop.Cart.*", L"!Shop.Cart.*;Shop.*"}) {
        EXPECT_TRUE(matches(text, L"Shop.Stock.Add"));
        EXPECT_FALSE(matches(text, L"Shop.Cart.Add"));
        EXPECT_FALSE(matches(text, L"Other.Cart.Add"));
    }
    EXPECT_FALSE(matches(L"*;!*", L"Shop.Cart.Add"));
}

TEST(MethodPatterns, ChooseNothingByExclusionsAlone) {
    const Patterns read(L"!Shop.Cart.*");
    EXPECT_TRUE(read.patterns.empty());
    EXPECT_FALSE(read.patterns.matches(L"Shop.Stock.Add"));
    EXPECT_FALSE(read.patterns.may_match_type(L"Shop.Stock"));
    EXPECT_EQ(read.reported, Reported());
}

TEST(MethodPatterns, ReportWhatTheyLeaveOut) {
    const std::wstring longest(1'000, L'a');
    const Patterns read(L"! ;A.B.C;" + longest + L"b;!" + longest + L"b;" + longest + L";!" +
                        longest);
    EXPECT_EQ(read.reported,
              (Reported{{L"!", L"nothing stands behind the \"!\""},
                        {longest + L"b", L"it is longer than 1,000 characters"},
                        {L"!" + longest + L"b", L"it is longer than 1,000 characters"}}));
    EXPECT_TRUE(read.patterns.matches(L"A.B.C"));
    EXPECT_EQ(read.patterns.never_matched(), (Texts{longest, L"!" + longest}));
}

TEST(MethodPatterns, AreAThousandAtMost) {
    std::wstring text;
    for (int i = 0; i < 1'002; ++i) {
        text += L"N.T.M" + std::to_wstring(i) + L" ;;";
    }
    const Patterns read(text);
    EXPECT_EQ(read.reported, (Reported{{L"N.T.M1000", L"there are 1,000 before it"},
                                       {L"N.T.M1001", L"there are 1,000 before it"}}));
    EXPECT_TRUE(read.patterns.matches(L"N.T.M0"));
    EXPECT_TRUE(read.patterns.matches(L"N.T.M999"));
    EXPECT_FALSE(read.patterns.matches(L"N.T.M1000"));
    EXPECT_EQ(read.patterns.never_matched().size(), 998U);
}

TEST(MethodPatterns, KnowWhichOfThemMetNoMethod) {
    const Patterns read(L"Shop.Cart.*;!*.Dispose;Shop.*;Nowhere.*;!Nowhere.*");
    EXPECT_EQ(read.patterns.never_matched(),
              (Texts{L"Shop.Cart.*", L"!*.Dispose", L"Shop.*", L"Nowhere.*", L"!Nowhere.*"}));
    read.patterns.matches(L"Shop.Cart.Add"); // both that include it, not only the first
    EXPECT_EQ(read.patterns.never_matched(), (Texts{L"!*.Dispose", L"Nowhere.*", L"!Nowhere.*"}));
    read.patterns.matches(L"Shop.Cart.Dispose");
    EXPECT_EQ(read.patterns.never_matched(), (Texts{L"Nowhere.*", L"!Nowhere.*"}));
}

TEST(MethodPatterns, AnswerAheadWithoutNoting) {
    const Patterns read(L"Shop.*;Shop.Stock.*;!*.Dispose");
    EXPECT_TRUE(read.patterns.would_match(L"Shop.Stock.Add"));
    EXPECT_FALSE(read.patterns.would_match(L"Shop.Stock.Dispose"));
    EXPECT_FALSE(read.patterns.would_match(L"Other.Stock.Add"));
    EXPECT_EQ(read.patterns.never_matched().size(), 3U);
}

TEST(MethodPatterns, RuleOutTypes) {
    EXPECT_TRUE(may_match(L"Shop.Cart.*", L"Shop.Cart"));
    EXPECT_TRUE(may_match(L"Shop.Cart.Add", L"Shop.Cart"));
    EXPECT_FALSE(may_match(L"Shop.Cart.Add", L"Shop.Car"));
    EXPECT_FALSE(may_match(L"Shop.Cart.Add", L"Shop.Cart.Add")); // a method has a name
    EXPECT_FALSE(may_match(L"Shop.Cart.", L"Shop.Cart"));
    EXPECT_TRUE(may_match(L"Shop.Cart..ctor", L"Shop.Cart"));
    EXPECT_TRUE(may_match(L"Shop.Cart.Add", L"Shop")); // a method may have a dot in its name
    EXPECT_FALSE(may_match(L"Shop.Cart.*", L"Shop.Stock"));
    EXPECT_FALSE(may_match(L"Shop.Cart.*", L"Shop.Cart+Line"));
    EXPECT_TRUE(may_match(L"Shop.Cart*", L"Shop.Cart+Line"));
    EXPECT_TRUE(may_match(L"Shop.*.Reserve", L"Shop.Stock"));
    EXPECT_FALSE(may_match(L"Shop.*.Reserve", L"Other.Stock"));
    EXPECT_TRUE(may_match(L"*.Reserve", L"Other.Stock"));
    EXPECT_TRUE(may_match(L"*", L""));
    EXPECT_TRUE(may_match(L"Other.*;Shop.*", L"Shop.Cart"));
    EXPECT_TRUE(may_match(L"Shop.*;!Shop.Cart.*", L"Shop.Cart")); // "may": only what includes
}

} // namespace
} // namespace corvane
