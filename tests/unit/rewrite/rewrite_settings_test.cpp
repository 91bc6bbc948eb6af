#include "rewrite/rewrite_settings.h"

#include "tests/support/agent_home.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(StrictIl, IsAskedForByOneAlone) {
    for (const auto& [value, asks] :
         {std::pair("1", true), std::pair("0", false), std::pair("", false), std::pair("11", false),
          std::pair("01", false), std::pair(" 1", false), std::pair("2", false),
          std::pair("true", false)}) {
        const testing::ScopedVariable variable("CORVANE_STRICT_IL", value);
        EXPECT_EQ(environment_asks_for_strict_il(), asks) << value;
    }
    const testing::ScopedVariable unset("CORVANE_STRICT_IL", std::nullopt);
    EXPECT_FALSE(environment_asks_for_strict_il());
}

} // namespace
} // namespace corvane
