#include "profiler/registry_script.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace corvane {
namespace {

const std::map<std::wstring, std::wstring> kReplacements = {{L"APPID", L"{1}"},
                                                            {L"MODULE", L"C:\\it's {here}\\m.dll"}};

// The tree as text: one line a key, indented; "!" marks a key that is kept.
std::wstring drawn(const RegistryKey& key, const std::wstring& indent = L"") {
    std::wstring text;
    for (const auto& [name, value] : key.values) {
        text += indent + name + L" := " + value + L"\n";
    }
    for (const RegistryKey& child : key.keys) {
        text += indent + (child.keep ? L"!" : L"") + child.name;
        text += child.default_value ? L" = " + *child.default_value + L"\n" : L"\n";
        text += drawn(child, indent + L"  ");
    }
    return text;
}

std::wstring parsed(std::wstring_view script) {
    return drawn(parse_registry_script(script, kReplacements));
}

TEST(RegistryScript, ReadsKeysValuesAndProtection) {
    EXPECT_EQ(parsed(LR"(
        HKCR {
            NoRemove AppID {
                '%APPID%' = s 'CorvaneProfiler'
                'CorvaneProfiler.dll' {
                    val AppID = s '%APPID%'
                }
            }
        })"),
              L"!AppID\n"
              L"  {1} = CorvaneProfiler\n"
              L"  CorvaneProfiler.dll\n"
              L"    AppID := {1}\n");
}

TEST(RegistryScript, ReadsKeysWithoutValueOrBlock) {
    EXPECT_EQ(parsed(L"HKCR { a b = s c d { e } }"), L"a\nb = c\nd\n  e\n");
    EXPECT_EQ(parsed(L"HKCR { }"), L"");
}

TEST(RegistryScript, KeepsQuotedWordsWhole) {
    EXPECT_EQ(parsed(L"HKCR { 'a b' = s '' '{' = s 'it''s' 'NoRemove' }"),
              L"a b = \n{ = it's\nNoRemove\n");
}

TEST(RegistryScript, ReplacesInsideWordsOnly) {
    EXPECT_EQ(parsed(L"HKCR { a = s '<%APPID%%APPID%>' b = s %MODULE% c = s 50% }"),
              L"a = <{1}{1}>\nb = C:\\it's {here}\\m.dll\nc = 50%\n");
}

TEST(RegistryScript, RefusesWhatIsNoScript) {
    for (const wchar_t* const script :
         {L"", L"HKLM { }", L"HKCR", L"HKCR {", L"HKCR { a", L"HKCR { a = }", L"HKCR { a = d 1 }",
          L"HKCR { a = s }", L"HKCR { val }", L"HKCR { val a }", L"HKCR { } x", L"HKCR { 'a",
          L"HKCR { = }", L"HKCR { NoRemove }", L"HKCR { %WHAT% }"}) {
        EXPECT_THROW(parsed(script), std::runtime_error) << script;
    }
}

} // namespace
} // namespace corvane
