#include "tools/corvane/pool_settings.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace corvane::tool {
namespace {

std::optional<PoolSettings> pool_of(const std::string& pools, const std::wstring& name) {
    std::istringstream text("<configuration><system.applicationHost><applicationPools>" + pools +
                            "</applicationPools></system.applicationHost></configuration>");
    return read_pool(text, name);
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
    EXPECT_EQ(pool->variables, (Environment{{L"A", L"1"}}));
    EXPECT_FALSE(pool_of("<add name='One'/>", L"Two"));
    EXPECT_FALSE(pool_of("<remove name='One'/>", L"One"));
}

TEST(ReadPool, TakesTheDefaultsForWhatAPoolHasNot) {
    const auto plain = pool_of(kDefaults + std::string("<add name='One'/>"), L"One");
    ASSERT_TRUE(plain);
    EXPECT_TRUE(plain->is_32_bit);
    EXPECT_EQ(plain->variables, (Environment{{L"A", L"default"}}));
    const auto own = pool_of(std::string("<add name='One' enable32BitAppOnWin64='false'>"
                                         "<environmentVariables><add name='B' value='1'/>"
                                         "</environmentVariables></add>") +
                                 kDefaults,
                             L"One");
    ASSERT_TRUE(own);
    EXPECT_FALSE(own->is_32_bit);
    EXPECT_EQ(own->variables, (Environment{{L"B", L"1"}}));
    EXPECT_FALSE(pool_of(kDefaults, L"applicationPoolDefaults"));
}

TEST(ReadPool, NeedsXml) {
    std::istringstream text("<configuration>");
    EXPECT_THROW(read_pool(text, L"One"), std::runtime_error);
    std::istringstream other("<other/>");
    EXPECT_FALSE(read_pool(other, L"One"));
}

} // namespace
} // namespace corvane::tool
