#include "base/hresult_text.h"

#include "tests/support/debug_output.h"
#include "tests/support/patched_import.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cwchar>
#include <string>
#include <utility>

namespace corvane {
namespace {

// What the system itself says of a code, line end included; empty when it knows none.
std::wstring system_text(DWORD code) {
    wchar_t text[1024] = {};
    FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0x400,
                   text, 1024, nullptr);
    return text;
}

std::wstring text_of(DWORD code) {
    return hresult_text(static_cast<HRESULT>(code)).c_str();
}

TEST(HresultText, IsTheSystemsTextWithoutLineEnd) {
    for (const DWORD code : {0x80004005UL, 0x80070005UL, 0x8007000EUL, 0UL}) {
        const std::wstring text = system_text(code);
        ASSERT_TRUE(text.ends_with(L"\r\n")) << code;
        EXPECT_EQ(text_of(code), text.substr(0, text.size() - 2)) << code;
    }
}

// A message as FormatMessageW gives it, to be freed by whoever asked.
const wchar_t* message = L"";
DWORD WINAPI give_message(DWORD, LPCVOID, DWORD, DWORD, LPWSTR text, DWORD, va_list*) {
    const std::size_t length = std::wcslen(message);
    auto* const copy = static_cast<wchar_t*>(LocalAlloc(LPTR, (length + 1) * sizeof(wchar_t)));
    std::wcscpy(copy, message);
    *reinterpret_cast<wchar_t**>(text) = copy;
    return static_cast<DWORD>(length);
}

TEST(HresultText, LosesALineFeedWithAndWithoutACarriageReturn) {
    const testing::PatchedImport patch("FormatMessageW", &give_message);
    for (const auto& [given, text] :
         {std::pair(L"Done.\r\n", L"Done."), std::pair(L"Done.\n", L"Done."),
          std::pair(L"Done.\r", L"Done.\r"), std::pair(L"Done.", L"Done."),
          std::pair(L"Done.\n\n", L"Done.\n"), std::pair(L"\r\n", L""), std::pair(L"\n", L"\n"),
          std::pair(L"a\n", L"a")}) {
        message = given;
        EXPECT_EQ(text_of(0), text);
    }
}

TEST(HresultText, KeepsTheInserts) {
    // ERROR_BAD_EXE_FORMAT: "%1 is not a valid Win32 application" and its like.
    EXPECT_NE(text_of(0x800700C1).find(L"%1"), std::wstring::npos);
}

TEST(HresultText, NamesDispatchErrorsByNumber) {
    ASSERT_EQ(system_text(0x80040201), L"");
    EXPECT_EQ(text_of(0x80040201), L"IDispatch error #1");
    ASSERT_EQ(system_text(0x8004FFFF), L"");
    EXPECT_EQ(text_of(0x8004FFFF), L"IDispatch error #65023"); // 0xFFFF - 0x200
    ASSERT_EQ(system_text(0x80045300), L"");
    EXPECT_EQ(text_of(0x80045300), L"IDispatch error #20736"); // 0x5300 - 0x200
}

TEST(HresultText, NamesOtherCodesByValue) {
    ASSERT_EQ(system_text(0x80040200), L"");
    EXPECT_EQ(text_of(0x80040200), L"Unknown error 0x80040200");
    ASSERT_EQ(system_text(0x800401FF), L"");
    EXPECT_EQ(text_of(0x800401FF), L"Unknown error 0x800401FF");
    ASSERT_EQ(system_text(0x80050000), L"");
    EXPECT_EQ(text_of(0x80050000), L"Unknown error 0x80050000");
}

TEST(HresultText, SaysSomethingOfACancelledActivation) {
    const std::wstring text = system_text(0x80131375);
    EXPECT_EQ(text_of(0x80131375),
              text.empty() ? L"Unknown error 0x80131375" : text.substr(0, text.size() - 2));
}

TEST(LogResult, PutsTheTextIntoAMessageOfLevelOne) {
    const testing::DebugOutput output;
    log_result(DebugLog(L"p: ", 1), L"failed (%s)", static_cast<HRESULT>(0x80040200));
    log_result(DebugLog(L"silent: ", 0), L"failed (%s)", E_FAIL);
    EXPECT_EQ(output.text(), L"p: failed (Unknown error 0x80040200)\n");
}

TEST(LogResult, TakesAnotherLevel) {
    const testing::DebugOutput output;
    log_result(DebugLog(L"p: ", 4), L"did not return S_OK %s", static_cast<HRESULT>(0x80040200), 4);
    log_result(DebugLog(L"silent: ", 3), L"did not return S_OK %s", E_FAIL, 4);
    EXPECT_EQ(output.text(), L"p: did not return S_OK Unknown error 0x80040200\n");
}

} // namespace
} // namespace corvane
