#include "base/debug_log.h"

#include "tests/support/allocations.h"
#include "tests/support/debug_output.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <thread>

namespace corvane {
namespace {

using testing::DebugOutput;

std::wstring thread_id() {
    return std::to_wstring(GetCurrentThreadId());
}

TEST(DebugLog, StartsWithTheThreadIdAndOneBlank) {
    const DebugOutput output;
    default_log.log(1, L"CClrProfiler::Initialize(): Invoked");
    EXPECT_EQ(output.raw(), thread_id() + L" CClrProfiler::Initialize(): Invoked");
}

TEST(DebugLog, NamesTheThreadThatLogs) {
    const DebugOutput output;
    std::wstring id;
    std::thread([&id] {
        id = thread_id();
        default_log.log(1, L"x");
    }).join();
    EXPECT_NE(id, thread_id());
    EXPECT_EQ(output.raw(), id + L" x");
}

TEST(DebugLog, WritesUpToItsThreshold) {
    const DebugOutput output;
    default_log.log(1, L"one");
    default_log.log(3, L"three");
    default_log.log(4, L"four");
    const DebugLog silent(L"", 0);
    silent.log(1, L"silent");
    const DebugLog detailed(L"", 4);
    detailed.log(4, L"detail");
    EXPECT_EQ(output.text(), L"one\nthree\ndetail\n");
    EXPECT_EQ(output.wide_lines(), 3);
    EXPECT_EQ(output.narrow_lines(), 0);
}

TEST(DebugLog, AllocatesNothingForASuppressedMessage) {
    const DebugLog log(std::wstring(100, L'p'));
    const std::size_t before = testing::allocations();
    for (int i = 0; i < 1000; ++i) {
        log.log(4, L"%s %d", L"argument", i);
        default_log.log(4, L"%s", L"argument");
    }
    EXPECT_EQ(testing::allocations(), before);
    // The counter counts: a written message does allocate its format.
    const DebugOutput output;
    log.log(3, L"written");
    EXPECT_GT(testing::allocations(), before);
}

TEST(DebugLog, FormatsByTheRulesOfTheMicrosoftRuntime) {
    const DebugOutput output;
    default_log.log(1, L"%s|%hs|%d|0x%0lX|%u", L"wide", "narrow", -5, 0x8004UL, 7U);
    EXPECT_EQ(output.text(), L"wide|narrow|-5|0x8004|7\n");
}

TEST(DebugLog, TakesThePrefixForAPartOfTheFormat) {
    const DebugOutput output;
    DebugLog(L"prefix: ").log(1, L"message");
    DebugLog(L"%d%% ").log(1, L"of %d", 50, 100);
    EXPECT_EQ(output.text(), L"prefix: message\n50% of 100\n");
}

TEST(DebugLog, AddsNoLineEnd) {
    const DebugOutput output;
    default_log.log(1, L"a\r\n");
    default_log.log(1, L"b");
    EXPECT_EQ(output.raw(), thread_id() + L" a\r\n" + thread_id() + L" b");
}

TEST(DebugLog, CutsAtFiveHundredAndTenCharacters) {
    for (const std::size_t length : {509U, 510U, 511U, 512U, 600U, 5000U}) {
        const std::wstring start = thread_id() + L" ";
        const std::wstring message(length - start.size(), L'x');
        const DebugOutput output;
        default_log.log(1, L"%s", message.c_str());
        EXPECT_EQ(output.raw(), (start + message).substr(0, 510)) << length;
    }
}

TEST(DebugLog, CutsALongFormatToo) {
    const DebugOutput output;
    const std::wstring message(600, L'y');
    DebugLog(L"p").log(1, message.c_str());
    EXPECT_EQ(output.raw(), (thread_id() + L" p" + message).substr(0, 510));
}

TEST(DebugLog, IsCopiedWithItsPrefixAndThreshold) {
    const DebugOutput output;
    const DebugLog original(L"p: ", 4);
    const DebugLog copy = original; // NOLINT(performance-unnecessary-copy-initialization)
    copy.log(4, L"detail");
    EXPECT_EQ(output.text(), L"p: detail\n");
}

TEST(NarrowDebugLog, WritesNarrowLines) {
    const DebugOutput output;
    const NarrowDebugLog log("p: ");
    log.log_narrow(3, "%s %ls", "narrow", L"wide");
    log.log_narrow(4, "suppressed");
    EXPECT_EQ(output.text(), L"p: narrow wide\n");
    EXPECT_EQ(output.narrow_lines(), 1);
    EXPECT_EQ(output.wide_lines(), 0);
}

TEST(NarrowDebugLog, CutsAtFiveHundredAndTenCharacters) {
    const DebugOutput output;
    NarrowDebugLog("").log_narrow(1, "%s", std::string(600, 'x').c_str());
    EXPECT_EQ(output.raw(), (thread_id() + L" " + std::wstring(600, L'x')).substr(0, 510));
}

TEST(NarrowDebugLog, WritesPlainLinesFromThresholdFour) {
    const DebugOutput output;
    const std::string message = "100%s" + std::string(600, 'x');
    NarrowDebugLog("3 ", 3).log_line_narrow("suppressed");
    NarrowDebugLog("4%d ", 4).log_line_narrow(message);
    EXPECT_EQ(output.text(), L"4%d " + std::wstring(message.begin(), message.end()) + L"\n");
    EXPECT_EQ(output.narrow_lines(), 1);
}

TEST(AsFormatText, DoublesPercentSigns) {
    EXPECT_EQ(as_format_text(L""), L"");
    EXPECT_EQ(as_format_text(L"System.String"), L"System.String");
    EXPECT_EQ(as_format_text(L"%"), L"%%");
    EXPECT_EQ(as_format_text(L"%s 100%% \u00E9%n"), L"%%s 100%%%% \u00E9%%n");
}

TEST(AsFormatText, StandsForItselfInAPrefix) {
    const DebugOutput output;
    const std::wstring name = L"%s%n%d 100%%";
    DebugLog(make_prefix(as_format_text(name), as_format_text(name), as_format_text(name)))
        .log(1, L"%s", L"message");
    EXPECT_EQ(output.text(), L'[' + name + L']' + name + L':' + name + L"() : message\n");
}

TEST(MakePrefix, JoinsTagScopeAndName) {
    EXPECT_EQ(make_prefix(L"assembly", L"Class", L"Method"), L"[assembly]Class:Method() : ");
    EXPECT_EQ(make_prefix("", "il_disassembler", ""), "[]il_disassembler:() : ");
    EXPECT_EQ(make_prefix(L"", L"", L""), L"[]:() : ");
}

} // namespace
} // namespace corvane
