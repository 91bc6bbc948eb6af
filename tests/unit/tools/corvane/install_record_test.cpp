#include "tools/corvane/install_record.h"

#include <gtest/gtest.h>

namespace corvane::tool {
namespace {

const InstallRecord kRecord = {
    true,
    L"O:BAD:P(A;;FA;;;SY)",
    {{L"corvane.exe", "12ab"}, {L"managed\\kite\\kite.managed.dll", "34cd"}},
    true,
    L"C:\\other\\CorvaneProfiler.dll",
    {{false, L"My \u0416 service", {{L"A", L"1", std::nullopt}, {L"B", std::nullopt, L"\"2\""}}},
     {true, L"Pool", {}}}};

TEST(Record, IsReadAsItWasWritten) {
    EXPECT_EQ(parse_record(to_json(kRecord)), kRecord);
    EXPECT_EQ(parse_record(to_json({})), InstallRecord());
}

TEST(Record, IsNoOtherText) {
    const std::string text = to_json(kRecord);
    for (std::size_t length = 0; length + 2 < text.size(); ++length) {
        EXPECT_EQ(parse_record(text.substr(0, length)), std::nullopt);
    }
    for (const char* const other : {"[]", "{}", "1", "{\"record\": 2}", "{\"record\": \"1\"}"}) {
        EXPECT_EQ(parse_record(other), std::nullopt) << other;
    }
}

// Whoever could write there could have another file removed.
TEST(Record, NamesNoFileOutsideOfItsFolder) {
    for (const wchar_t* const path :
         {L"", L"..\\a", L"a\\..\\..\\b", L"\\a", L"C:\\a", L"C:a", L"../a"}) {
        InstallRecord record;
        record.files = {{path, "12"}};
        EXPECT_EQ(parse_record(to_json(record)), std::nullopt) << path;
    }
}

TEST(Record, HasOneEntryForEachFileAndTarget) {
    InstallRecord record = kRecord;
    EXPECT_EQ(find_file(record, L"CORVANE.exe"), &record.files.front());
    EXPECT_EQ(find_file(record, L"other"), nullptr);
    EXPECT_EQ(&target_of(record, true, L"pool"), &record.targets.back());
    EXPECT_EQ(target_of(record, false, L"Pool"), (RecordedTarget{false, L"Pool", {}}));
    EXPECT_EQ(record.targets.size(), 3U);
}

TEST(Variables, AreTakenBackToWhatWasThere) {
    const Environment before = {{L"Path", L"p"}, {L"Old", L"o"}, {L"Same", L"s"}};
    const Changes changes = {{L"New", L"n"}, {L"PATH", L"q"}, {L"Old", {}}, {L"Same", L"s"}};
    const auto recorded = recorded_with({}, before, changes);
    const Environment after = changed(before, changes);
    const TakingBack back = taking_back(recorded, after);
    EXPECT_EQ(back.left, std::vector<std::wstring>());
    EXPECT_EQ(changed(after, back.changes), before);
    // What is as it was needs nothing.
    EXPECT_EQ(taking_back(recorded, before).changes, Changes());
    EXPECT_EQ(taking_back(recorded, before).left, std::vector<std::wstring>());
}

TEST(Variables, ThatSomebodyElseChangedSinceAreLeft) {
    const auto recorded =
        recorded_with({}, {{L"B", L"0"}}, {{L"A", L"1"}, {L"B", L"2"}, {L"C", L"3"}});
    const TakingBack back = taking_back(recorded, {{L"A", L"mine"}, {L"B", L"2"}});
    EXPECT_EQ(back.left, std::vector<std::wstring>{L"A"});
    EXPECT_EQ(back.changes, (Changes{{L"B", L"0"}})); // C is gone already
}

TEST(Variables, OfASecondInstallationGoBackToThoseBeforeTheFirst) {
    const Environment before = {{L"A", L"0"}};
    const Changes first = {{L"A", L"1"}};
    const Changes second = {{L"A", L"2"}, {L"B", L"2"}};
    auto recorded = recorded_with({}, before, first);
    recorded = recorded_with(recorded, changed(before, first), second);
    EXPECT_EQ(recorded,
              (std::vector<RecordedVariable>{{L"A", L"2", L"0"}, {L"B", L"2", std::nullopt}}));
    // Somebody's own value in between is theirs.
    recorded = recorded_with(recorded, {{L"A", L"mine"}}, {{L"a", L"3"}});
    EXPECT_EQ(recorded.front(), (RecordedVariable{L"A", L"3", L"mine"}));
}

TEST(Variables, ThatAreThereAlreadyAreNoChange) {
    EXPECT_EQ(differing({{L"A", L"1"}, {L"B", L"2"}, {L"C", {}}, {L"D", {}}},
                        {{L"a", L"1"}, {L"B", L"1"}, {L"D", L"4"}}),
              (Changes{{L"B", L"2"}, {L"D", {}}}));
}

TEST(Assignments, KeepTheirPlaces) {
    const Words words = {L"=C:=C:\\", L"A=1", L"no sign", L"B=2"};
    EXPECT_EQ(with_changes(words, {{L"a", L"x=y"}, {L"B", {}}, {L"C", L""}}),
              (Words{L"=C:=C:\\", L"a=x=y", L"no sign", L"C="}));
    EXPECT_EQ(with_changes({}, {{L"A", {}}}), Words());
    EXPECT_EQ(as_environment(words), (Environment{{L"=C:", L"C:\\"}, {L"A", L"1"}, {L"B", L"2"}}));
}

} // namespace
} // namespace corvane::tool
