#include "tools/corvane/environment.h"

#include <gtest/gtest.h>

namespace corvane::tool {
namespace {

using namespace std::string_literals;

const Changes kChanges = {
    {L"PATTERN", L"Shop.*; 100%"}, {L"FOLDER", L"C:\\it's here"}, {L"OLD", std::nullopt}};

TEST(Environment, IsReadAndWrittenAsTheSystemDoes) {
    const Environment environment = parse_environment(L"=C:=C:\\folder\0b=1=2\0A=\0\0");
    EXPECT_EQ(environment, (Environment{{L"=C:", L"C:\\folder"}, {L"A", L""}, {L"b", L"1=2"}}));
    EXPECT_EQ(environment_block(environment), L"=C:=C:\\folder\0A=\0b=1=2\0\0"s);
}

TEST(Environment, HasANameOnceWhateverItsCase) {
    const Environment environment = changed({{L"Old", L"1"}, {L"Folder", L"x"}}, kChanges);
    EXPECT_EQ(environment,
              (Environment{{L"Folder", L"C:\\it's here"}, {L"PATTERN", L"Shop.*; 100%"}}));
}

TEST(Environment, IsShownForABatchFile) {
    EXPECT_EQ(as_batch_file(kChanges), L"set \"PATTERN=Shop.*; 100%%\"\r\n"
                                       L"set \"FOLDER=C:\\it's here\"\r\n"
                                       L"set \"OLD=\"\r\n");
}

TEST(Environment, IsShownForPowerShell) {
    EXPECT_EQ(as_powershell(kChanges), L"$env:PATTERN = 'Shop.*; 100%'\r\n"
                                       L"$env:FOLDER = 'C:\\it''s here'\r\n"
                                       L"Remove-Item Env:OLD -ErrorAction Ignore\r\n");
}

TEST(Environment, CanBeUndone) {
    EXPECT_EQ(undoing({{L"folder", L"a=b"}, {L"Old", L"1"}}, kChanges),
              L"PATTERN\nFOLDER=a=b\nOLD=1\n");
}

} // namespace
} // namespace corvane::tool
