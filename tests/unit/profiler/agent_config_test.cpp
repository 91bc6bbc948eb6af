#include "profiler/agent_config.h"

#include "tests/support/agent_home.h"
#include "tests/support/log_lines.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>

namespace corvane {
namespace {

using testing::AgentHome;
using testing::LogLines;

constexpr const wchar_t* kNotFound =
    L"CClrProfiler::LoadAgentConfig(): Could not find agent.config file";

std::string settings(const std::string& entries) {
    return "<configuration><appSettings>" + entries + "</appSettings></configuration>";
}

// Loads the file that is in `home` and asks it.
bool check(const AgentHome&, const char* key, const char* value, LogLines& log) {
    AgentConfig config;
    EXPECT_TRUE(LoadAgentConfig(config, log.sink()));
    return check_key(config, key, value, log.sink());
}

bool check(const std::string& entries, const char* key, const char* value) {
    const AgentHome home(settings(entries));
    LogLines log;
    const bool answer = check(home, key, value, log);
    EXPECT_EQ(log.text(), L"");
    return answer;
}

void expect_unreadable(const AgentHome& home) {
    LogLines log;
    AgentConfig config;
    config.put("left.over", "text");
    EXPECT_FALSE(LoadAgentConfig(config, log.sink())) << home.folder();
    EXPECT_EQ(log.text(), std::wstring(L"1 ") + kNotFound + L"\n");
    EXPECT_TRUE(config.empty());
}

TEST(LoadAgentConfig, IsSilentWithoutTheVariable) {
    const AgentHome home = AgentHome::unset();
    LogLines log;
    AgentConfig config;
    EXPECT_FALSE(LoadAgentConfig(config, log.sink()));
    EXPECT_EQ(log.text(), L"");
}

TEST(LoadAgentConfig, ReadsElementsAndAttributes) {
    const AgentHome home(settings(R"(<add key="Inlining" value="Disabled"/>)"));
    LogLines log;
    AgentConfig config;
    ASSERT_TRUE(LoadAgentConfig(config, log.sink()));
    EXPECT_EQ(config.get<std::string>("configuration.appSettings.add.<xmlattr>.key"), "Inlining");
    EXPECT_EQ(config.get<std::string>("configuration.appSettings.add.<xmlattr>.value"), "Disabled");
    EXPECT_EQ(log.text(), L"");
}

TEST(LoadAgentConfig, TakesTheFolderWithAndWithoutSeparator) {
    const std::string text = settings(R"(<add key="k" value="v"/>)");
#ifdef _WIN32
    constexpr std::array kEnds = {"", "/", "\\"};
#else
    constexpr std::array kEnds = {"", "/"};
#endif
    for (const char* const end : kEnds) {
        const AgentHome home(text, "agent home", end);
        LogLines log;
        EXPECT_TRUE(check(home, "k", "v", log)) << home.folder();
    }
}

TEST(LoadAgentConfig, TakesAFolderWithBlanksAndNonAsciiCharacters) {
    // Latin-1 letters: in the tests' Windows code page as well as in UTF-8 file systems.
#ifdef _WIN32
    const AgentHome home(settings(R"(<add key="k" value="v"/>)"), "B\xFC"
                                                                  "cher \xE4 1");
#else
    const AgentHome home(settings(R"(<add key="k" value="v"/>)"), "Bücher ä 1");
#endif
    LogLines log;
    EXPECT_TRUE(check(home, "k", "v", log));
}

TEST(LoadAgentConfig, ReportsAFolderThatDoesNotExist) {
    expect_unreadable(AgentHome::pointing_to("no-such-folder"));
}

#ifndef _WIN32 // where this process cannot give itself such a variable
TEST(LoadAgentConfig, TakesAnEmptyVariableForNone) {
    const AgentHome home = AgentHome::pointing_to("");
    std::ofstream("agent.config") << "<configuration/>"; // in the current folder
    LogLines log;
    AgentConfig config;
    EXPECT_FALSE(LoadAgentConfig(config, log.sink()));
    EXPECT_EQ(log.text(), L"");
    std::filesystem::remove("agent.config");
}
#endif

TEST(LoadAgentConfig, ReportsAFolderThatIsAFile) {
    const AgentHome real("<configuration/>");
    expect_unreadable(AgentHome::pointing_to(real.folder() + "/agent.config"));
}

TEST(LoadAgentConfig, ReportsAFolderWithoutTheFile) {
    const AgentHome real("<configuration/>");
    real.remove_config();
    expect_unreadable(AgentHome::pointing_to(real.folder()));
}

TEST(LoadAgentConfig, ReportsMalformedText) {
    for (const char* const text :
         {"<configuration>", "<configuration", "no markup", "<a b=c/>", "<"}) {
        SCOPED_TRACE(text);
        const AgentHome home(text);
        expect_unreadable(home);
    }
}

TEST(LoadAgentConfig, ReportsUtf16) {
    std::string utf16 = "\xFF\xFE";
    for (const char c : settings("")) {
        utf16 += c;
        utf16 += '\0';
    }
    const AgentHome home(utf16);
    expect_unreadable(home);
}

TEST(LoadAgentConfig, SkipsTheByteOrderMarkOfUtf8) {
    const AgentHome home("\xEF\xBB\xBF" + settings(R"(<add key="k" value="v"/>)"));
    LogLines log;
    EXPECT_TRUE(check(home, "k", "v", log));
}

TEST(LoadAgentConfig, TakesAnEmptyFileForOneWithoutSections) {
    const AgentHome home("");
    LogLines log;
    EXPECT_FALSE(check(home, "k", "v", log));
    EXPECT_EQ(log.text(), L"4 CClrProfiler::CheckKey(): Could not find "
                          L"configuration.appSettings.add elements.\n");
}

TEST(LoadAgentConfig, DropsComments) {
    EXPECT_TRUE(check(R"(<!-- <add key="k" value="w"/> --><add key="k" value="v"/>)", "k", "v"));
}

TEST(LoadAgentConfig, ReadsTenMegabytes) {
    std::string entries;
    while (entries.size() < 10 * 1024 * 1024) {
        entries += R"(<add key="other" value="text that fills the file"/>)";
    }
    const AgentHome home(settings(entries + R"(<add key="k" value="v"/>)"));
    LogLines log;
    EXPECT_TRUE(check(home, "k", "v", log));
}

TEST(LoadAgentConfig, RefusesElementsNestedTooDeep) {
    const auto nested = [](std::size_t depth) {
        std::string text;
        for (std::size_t i = 0; i < depth; ++i) {
            text += "<a>";
        }
        for (std::size_t i = 0; i < depth; ++i) {
            text += "</a>";
        }
        return text;
    };
    const AgentHome home(nested(1'000'000));
    expect_unreadable(home);

    const AgentHome deepest(nested(kMaxElementDepth));
    LogLines log;
    AgentConfig config;
    EXPECT_TRUE(LoadAgentConfig(config, log.sink()));
}

TEST(CheckKey, ComparesKeyAndValueExactly) {
    const std::string entry = R"(<add key="Inlining" value="Disabled"/>)";
    EXPECT_TRUE(check(entry, "Inlining", "Disabled"));
    EXPECT_FALSE(check(entry, "inlining", "Disabled"));
    EXPECT_FALSE(check(entry, "Inlining", "disabled"));
    EXPECT_FALSE(check(entry, "Inlining", "Disable"));
    EXPECT_FALSE(check(entry, "Inlining", ""));
    EXPECT_FALSE(check(entry, "Inlining ", "Disabled"));
    EXPECT_FALSE(check(R"(<add key="Inlining " value="Disabled"/>)", "Inlining", "Disabled"));
    EXPECT_FALSE(check(R"(<add key="Inlining" value=" Disabled"/>)", "Inlining", "Disabled"));
}

TEST(CheckKey, TakesElementNamesInAnyCase) {
    EXPECT_TRUE(check(R"(<ADD key="k" value="v"/>)", "k", "v"));
    EXPECT_TRUE(check(R"(<Add key="k" value="v"/>)", "k", "v"));
    EXPECT_FALSE(check(R"(<remove key="k" value="v"/>)", "k", "v"));
}

TEST(CheckKey, LetsTheFirstEntryDecide) {
    const std::string entries =
        R"(<add key="Inlining" value="Enabled"/><add key="Inlining" value="Disabled"/>)";
    EXPECT_FALSE(check(entries, "Inlining", "Disabled"));
    EXPECT_TRUE(check(entries, "Inlining", "Enabled"));
}

TEST(CheckKey, PassesOverAnEntryWithoutKey) {
    const AgentHome home(settings(R"(<add value="v"/><add key="k" value="v"/>)"));
    LogLines log;
    EXPECT_TRUE(check(home, "k", "v", log));
    EXPECT_EQ(log.text(), L"4 CClrProfiler::CheckKey(): configuration.appSettings.add element does "
                          L"not have key attribute.\n");
}

TEST(CheckKey, StopsAtTheEntryWithoutValue) {
    const AgentHome home(settings(R"(<add key="k"/><add key="k" value="v"/>)"));
    LogLines log;
    EXPECT_FALSE(check(home, "k", "v", log));
    EXPECT_EQ(log.text(), L"4 CClrProfiler::CheckKey(): configuration.appSettings.add element does "
                          L"not have value attribute.\n");
}

TEST(CheckKey, IsFalseWithoutTheSection) {
    for (const char* const text :
         {"<configuration/>", "<other><appSettings><add key='k' value='v'/></appSettings></other>",
          "<configuration><AppSettings><add key='k' value='v'/></AppSettings></configuration>"}) {
        SCOPED_TRACE(text);
        const AgentHome home(text);
        LogLines log;
        EXPECT_FALSE(check(home, "k", "v", log));
        EXPECT_EQ(log.text(), L"4 CClrProfiler::CheckKey(): Could not find "
                              L"configuration.appSettings.add elements.\n");
    }
}

TEST(CheckKey, IsFalseWhenTheEntriesRunOut) {
    EXPECT_FALSE(check("", "k", "v"));
}

} // namespace
} // namespace corvane
