#include "tools/corvane/host_config.h"

#include <gtest/gtest.h>

namespace corvane::tool {
namespace {

// As IIS lays it out.
const std::string kConfig = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
                            "<!-- <applicationPools> of a comment > -->\r\n"
                            "<configuration>\r\n"
                            "    <configSections a=\"x > y\" />\r\n"
                            "    <system.applicationHost>\r\n"
                            "        <applicationPools>\r\n"
                            "            <add name=\"One\" />\r\n"
                            "            <add name=\"Two &amp; more\" managed=\"v4\">\r\n"
                            "                <processModel kind=\"a\" />\r\n"
                            "                <environmentVariables>\r\n"
                            "                    <add name=\"A\" value=\"&lt;1&gt;&#x41;\" />\r\n"
                            "                </environmentVariables>\r\n"
                            "            </add>\r\n"
                            "            <applicationPoolDefaults>\r\n"
                            "                <environmentVariables><add name=\"D\" "
                            "value=\"d\"/></environmentVariables>\r\n"
                            "            </applicationPoolDefaults>\r\n"
                            "        </applicationPools>\r\n"
                            "    </system.applicationHost>\r\n"
                            "</configuration>\r\n";

std::string changed_text(const std::string& text, std::wstring_view pool, const Changes& changes) {
    const auto changed = with_pool_variables(text, pool, changes);
    EXPECT_TRUE(changed);
    return changed.value_or("");
}

std::optional<Environment> pool_variables(std::string_view text, std::wstring_view pool) {
    const auto settings = read_pool(text, pool);
    return settings ? std::optional(settings->own) : std::nullopt;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, text.npos) << from;
    return text.replace(at, from.size(), to);
}

TEST(PoolVariables, AreThoseOfThePoolAlone) {
    EXPECT_EQ(pool_variables(kConfig, L"one"), Environment());
    EXPECT_EQ(pool_variables(kConfig, L"two & MORE"), (Environment{{L"A", L"<1>A"}}));
    EXPECT_EQ(pool_variables(kConfig, L"Three"), std::nullopt);
    EXPECT_EQ(with_pool_variables(kConfig, L"Three", {{L"A", L"1"}}), std::nullopt);
}

TEST(PoolVariables, AreAddedToAPoolWithoutAny) {
    const std::string text =
        changed_text(kConfig, L"One", {{L"X", L"a \"b\" & <c>"}, {L"Y", L"2"}});
    EXPECT_EQ(text, replaced(kConfig, "<add name=\"One\" />\r\n",
                             "<add name=\"One\">\r\n"
                             "                <environmentVariables>\r\n"
                             "                    <add name=\"X\" value=\"a &quot;b&quot; &amp; "
                             "&lt;c&gt;\" />\r\n"
                             "                    <add name=\"Y\" value=\"2\" />\r\n"
                             "                </environmentVariables>\r\n"
                             "            </add>\r\n"));
    EXPECT_EQ(pool_variables(text, L"One"), (Environment{{L"X", L"a \"b\" & <c>"}, {L"Y", L"2"}}));
    EXPECT_EQ(changed_text(text, L"One", {{L"X", {}}, {L"y", {}}}), kConfig);
}

TEST(PoolVariables, AreChangedWhereTheyStand) {
    const std::wstring pool = L"Two & more";
    const std::string text = changed_text(kConfig, pool, {{L"a", L"it's"}, {L"B", L"\u0416"}});
    EXPECT_EQ(text, replaced(kConfig, "&lt;1&gt;&#x41;\" />\r\n",
                             "it&apos;s\" />\r\n"
                             "                    <add name=\"B\" value=\"\xD0\x96\" />\r\n"));
    EXPECT_EQ(pool_variables(text, pool), (Environment{{L"A", L"it's"}, {L"B", L"\u0416"}}));
    EXPECT_EQ(changed_text(text, pool, {{L"B", {}}, {L"A", L"<1>A"}}),
              replaced(kConfig, "&#x41;", "A"));
    EXPECT_EQ(changed_text(kConfig, pool, {{L"No", {}}}), kConfig);
}

TEST(PoolVariables, GoWithTheirListButNotWithOthers) {
    EXPECT_EQ(changed_text(kConfig, L"Two & more", {{L"A", {}}}),
              replaced(kConfig,
                       "                <environmentVariables>\r\n"
                       "                    <add name=\"A\" value=\"&lt;1&gt;&#x41;\" />\r\n"
                       "                </environmentVariables>\r\n",
                       ""));
}

TEST(PoolVariables, AreWrittenIntoOtherLayouts) {
    const std::string before = "<configuration><system.applicationHost><applicationPools>";
    const std::string after = "</applicationPools></system.applicationHost></configuration>";
    for (const std::string pool :
         {"<add name='P'/>", "<add name = 'P' ></add>", "<add name='P'>\n</add>",
          "<add name='P'><environmentVariables/></add>",
          "<add name='P'><environmentVariables><clear/></environmentVariables></add>",
          "<add name='P'><environmentVariables><add name='V'/></environmentVariables></add>",
          "<add name='P'><environmentVariables><add value='o' "
          "name='V'/></environmentVariables></add>"}) {
        const std::string text = changed_text(before + pool + after, L"P", {{L"V", L"it's"}});
        EXPECT_EQ(pool_variables(text, L"P"), (Environment{{L"V", L"it's"}})) << text;
        EXPECT_TRUE(text.starts_with(before) && text.ends_with(after)) << text;
        EXPECT_EQ(pool_variables(changed_text(text, L"P", {{L"V", {}}}), L"P"), Environment());
    }
}

TEST(PoolVariables, AreNotLookedForInWhatIsMalformed) {
    const std::string good =
        "<configuration><system.applicationHost><applicationPools><add name='P'/>"
        "</applicationPools></system.applicationHost></configuration>";
    EXPECT_TRUE(pool_variables(good, L"P"));
    for (std::size_t length = 0; length < good.size(); ++length) {
        EXPECT_FALSE(pool_variables(good.substr(0, length), L"P")) << length;
    }
    std::string deep;
    for (int depth = 0; depth < 100; ++depth) {
        deep += "<a>";
    }
    for (const std::string& text :
         {std::string("<>"), std::string("</a>"), std::string("<a></b>"), std::string("<!-- "),
          std::string("<"), std::string("<a b='>"), deep}) {
        EXPECT_FALSE(pool_variables(text + good, L"P")) << text;
        EXPECT_FALSE(is_well_formed(text + good)) << text;
    }
    EXPECT_TRUE(is_well_formed(good));
    EXPECT_TRUE(is_well_formed("<other/>"));
    EXPECT_FALSE(read_pool("<other/>", L"P"));
}

std::optional<PoolSettings> pool_of(const std::string& pools, const std::wstring& name) {
    return read_pool("<configuration><system.applicationHost><applicationPools>" + pools +
                         "</applicationPools></system.applicationHost></configuration>",
                     name);
}

constexpr char kDefaults[] =
    "<applicationPoolDefaults enable32BitAppOnWin64='true'><environmentVariables>"
    "<add name='A' value='default'/></environmentVariables></applicationPoolDefaults>";

TEST(ReadPool, FindsItByNameWhateverTheCase) {
    const auto pool =
        pool_of("<add name='One'/><add name='T\xC3\xBCr'><environmentVariables>"
                "<add name='A' value='1'/><remove name='B'/></environmentVariables></add>",
                L"t\u00FCr");
    ASSERT_TRUE(pool);
    EXPECT_FALSE(pool->is_32_bit);
    EXPECT_EQ(pool->own, (Environment{{L"A", L"1"}}));
    EXPECT_FALSE(pool_of("<add name='One'/>", L"Two"));
    EXPECT_FALSE(pool_of("<remove name='One'/>", L"One"));
}

TEST(ReadPool, TakesTheDefaultsForWhatAPoolHasNot) {
    const auto plain = pool_of(kDefaults + std::string("<add name='One'/>"), L"One");
    ASSERT_TRUE(plain);
    EXPECT_TRUE(plain->is_32_bit);
    EXPECT_EQ(plain->inherited, (Environment{{L"A", L"default"}}));
    EXPECT_EQ(plain->own, Environment());
    const auto own = pool_of(std::string("<add name='One' enable32BitAppOnWin64='false'>"
                                         "<environmentVariables><add name='B' value='1'/>"
                                         "</environmentVariables></add>") +
                                 kDefaults,
                             L"One");
    ASSERT_TRUE(own);
    EXPECT_FALSE(own->is_32_bit);
    EXPECT_EQ(own->own, (Environment{{L"B", L"1"}}));
    EXPECT_EQ(own->inherited, Environment());
    const auto none =
        pool_of(std::string("<add name='One'><environmentVariables/></add>") + kDefaults, L"One");
    ASSERT_TRUE(none);
    EXPECT_EQ(none->inherited, Environment());
    EXPECT_FALSE(pool_of(kDefaults, L"applicationPoolDefaults"));
}

} // namespace
} // namespace corvane::tool
