#include "base/log_settings.h"

#include <gmock/gmock.h>

#include <cwchar>

namespace corvane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(LogSettings, AreTheUsualOnesWithoutVariables) {
    for (const LogVariables& variables : {LogVariables{}, LogVariables{L"", L"", L""}}) {
        const LogSettings settings = read_log_settings(variables, 77);
        EXPECT_EQ(settings.file, L"");
        EXPECT_EQ(settings.level, 3);
        EXPECT_EQ(settings.limit, 10U << 20);
        EXPECT_THAT(settings.complaints, IsEmpty());
    }
}

TEST(LogSettings, AreTakenFromTheVariables) {
    const LogSettings settings =
        read_log_settings({L"C:\\logs\\{pid}\\corvane-{pid}.log", L"4", L"1024"}, 77);
    EXPECT_EQ(settings.file, L"C:\\logs\\77\\corvane-77.log");
    EXPECT_EQ(settings.level, 4);
    EXPECT_EQ(settings.limit, std::uint64_t{1024} << 20);
    EXPECT_THAT(settings.complaints, IsEmpty());
}

TEST(LogSettings, TakeFullPathsOnly) {
    for (const wchar_t* const path :
         {L"C:\\a.log", L"z:/a.log", L"\\\\server\\share\\a.log", L"\\\\?\\C:\\a.log",
          L"//server/share/a.log", L"C:\\B\u00fccher \u0416\\a.log"}) {
        const LogSettings settings = read_log_settings({path, {}, {}}, 1);
        EXPECT_EQ(settings.file, path);
        EXPECT_THAT(settings.complaints, IsEmpty());
    }
    for (const wchar_t* const path :
         {L"a.log", L"logs\\a.log", L"..\\a.log", L"\\a.log", L"/a.log", L"C:a.log", L"C:\\",
          L"\\\\", L"1:\\a.log", L" C:\\a.log", L"{pid}"}) {
        const LogSettings settings = read_log_settings({path, {}, {}}, 1);
        EXPECT_EQ(settings.file, L"") << path;
        EXPECT_THAT(settings.complaints,
                    ElementsAre(std::wstring(L"CORVANE_LOG_FILE is \"") + path +
                                L"\", which is no full path; no file is written"));
    }
}

TEST(LogSettings, TakeNumbersOfTheirRangesOnly) {
    for (const wchar_t* const text : {L"0", L"1", L"2", L"3", L"4", L"04"}) {
        EXPECT_EQ(read_log_settings({{}, text, {}}, 1).level, text[std::wcslen(text) - 1] - L'0');
    }
    for (const wchar_t* const text :
         {L"5", L"-1", L"+1", L"1.5", L"high", L" 1", L"1 ", L"0x1", L"99999999999999999999"}) {
        const LogSettings settings = read_log_settings({{}, text, {}}, 1);
        EXPECT_EQ(settings.level, 3) << text;
        EXPECT_THAT(settings.complaints,
                    ElementsAre(std::wstring(L"CORVANE_LOG_LEVEL is \"") + text +
                                L"\", which is no number from 0 to 4; 3 is used"));
    }
    EXPECT_EQ(read_log_settings({{}, {}, L"1"}, 1).limit, 1U << 20);
    for (const wchar_t* const text : {L"0", L"1025", L"-1", L"MB", L"4294967297", L"1000000000"}) {
        const LogSettings settings = read_log_settings({{}, {}, text}, 1);
        EXPECT_EQ(settings.limit, 10U << 20) << text;
        EXPECT_THAT(settings.complaints,
                    ElementsAre(std::wstring(L"CORVANE_LOG_LIMIT_MB is \"") + text +
                                L"\", which is no number from 1 to 1024; 10 is used"));
    }
}

TEST(LogRecord, IsOneLineWithItsStart) {
    EXPECT_EQ(log_record(L"now ", L"12 text"), "now 12 text\r\n");
    EXPECT_EQ(log_record(L"now ", L""), "now \r\n");
}

TEST(LogRecord, ContinuesBehindBlanks) {
    EXPECT_EQ(log_record(L"now ", L"TRAVERSING TYPE System.Object \r\n"),
              "now TRAVERSING TYPE System.Object \r\n");
    EXPECT_EQ(log_record(L"now ", L"a\nb\r\nc\rd\n\ne\n\r\n"),
              "now a\r\n    b\r\n    c\r\n    d\r\n    \r\n    e\r\n");
    EXPECT_EQ(log_record(L"now ", L"\r\n\n"), "now \r\n");
}

TEST(LogRecord, IsUtf8) {
    EXPECT_EQ(log_record(L"", L"B\u00fccher \u0416 \u20ac"), "B\xC3\xBC"
                                                             "cher \xD0\x96 \xE2\x82\xAC\r\n");
    const wchar_t pair[] = {0xD83D, 0xDE00, 0};
    EXPECT_EQ(log_record(L"", pair), "\xF0\x9F\x98\x80\r\n");
}

TEST(LogRecord, ReplacesHalvesOfPairs) {
    const std::string replaced = "\xEF\xBF\xBD";
    const wchar_t high_alone[] = {L'a', 0xD83D, L'b', 0};
    const wchar_t low_alone[] = {0xDE00, L'b', 0};
    const wchar_t high_last[] = {L'a', 0xD83D, 0};
    const wchar_t turned[] = {0xDE00, 0xD83D, 0};
    EXPECT_EQ(log_record(L"", high_alone), "a" + replaced + "b\r\n");
    EXPECT_EQ(log_record(L"", low_alone), replaced + "b\r\n");
    EXPECT_EQ(log_record(L"", high_last), "a" + replaced + "\r\n");
    EXPECT_EQ(log_record(L"", turned), replaced + replaced + "\r\n");
}

} // namespace
} // namespace corvane
