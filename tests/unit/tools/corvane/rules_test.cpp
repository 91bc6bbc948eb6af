#include "tools/corvane/rules.h"

#include "selection/target_methods.h"

#include <gtest/gtest.h>

#include <boost/property_tree/xml_parser.hpp>

#include <sstream>

namespace corvane::tool {
namespace {

// Leaves the profiler's table as it was found, before start-up.
class Rules : public ::testing::Test {
protected:
    ~Rules() override { target_methods.clear(); }
};

std::string shown(const std::string& xml, const wchar_t* patterns = L"") {
    std::istringstream stream(xml);
    AgentConfig config;
    boost::property_tree::read_xml(stream, config, boost::property_tree::xml_parser::no_comments);
    return rules_text(&config, patterns);
}

TEST_F(Rules, ShowEntriesSettingsAndPatterns) {
    const std::string text = shown(R"(<configuration>
        <appSettings><ADD key="Inlining" value="Disabled"/><other key="x" value="y"/></appSettings>
        <instrumentation>
          <applications>
            <application name="a.exe" corvane="Disabled"/>
            <application name="b.exe" inlining="Disabled"/>
            <application/>
            <application name="A.EXE"/>
          </applications>
          <applicationPools><applicationPool name="One" corvane="disabled"/></applicationPools>
        </instrumentation></configuration>)",
                                   L"Shop.*; !*.ToString; !");
    EXPECT_TRUE(text.starts_with("Executables:\r\n"
                                 "  a.exe: disabled\r\n"
                                 "  b.exe: enabled, without inlining\r\n"
                                 "  A.EXE: enabled (an entry before decides)\r\n"
                                 "Application pools:\r\n"
                                 "  One: enabled\r\n"
                                 "Settings:\r\n"
                                 "  Inlining=Disabled\r\n"
                                 "Patterns of CORVANE_METHODS:\r\n"))
        << text;
    EXPECT_NE(text.find("  left out: ! ("), std::string::npos) << text;
    EXPECT_NE(text.find("  Shop.*\r\n  !*.ToString\r\n"), std::string::npos) << text;
}

TEST_F(Rules, ShowTheTableThatTheSettingsMake) {
    const std::string without = rules_text(nullptr, L"");
    EXPECT_TRUE(without.starts_with(
        "Executables:\r\n  none\r\nApplication pools:\r\n  none\r\nSettings:\r\n  none\r\n"));
    EXPECT_NE(without.find("  System.Net.HttpWebRequest.GetResponse\r\n"), std::string::npos);
    EXPECT_EQ(without.find("Serilog"), std::string::npos);
    const std::string with =
        shown("<configuration><appSettings><add key='InsertLogTraceIdIntoLogs' "
              "value='Enabled'/></appSettings></configuration>");
    EXPECT_NE(with.find("Serilog"), std::string::npos);
}

} // namespace
} // namespace corvane::tool
