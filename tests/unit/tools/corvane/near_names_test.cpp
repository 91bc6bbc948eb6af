#include "tools/corvane/near_names.h"

#include <gtest/gtest.h>

namespace corvane::tool {
namespace {

TEST(NearName, IsOneThatSomebodyMeant) {
    for (const char* const written :
         {"MyServce.exe", "MyService", "myservice.dll", " MyService.exe ", "C:\\App\\MyService.exe",
          "bin/MyServices.exe", "NyServise.exe"}) {
        EXPECT_EQ(near_name("MyService.exe", {"another.exe", written}), written);
    }
}

TEST(NearName, MayHaveAnotherExtension) {
    EXPECT_EQ(near_name("agent.config", {"agent.config.bak", "Agent.Config.txt"}),
              "Agent.Config.txt");
    EXPECT_EQ(near_name("agent.config", {"agents.config.xml"}), "agents.config.xml");
}

TEST(NearName, IsTheNearest) {
    EXPECT_EQ(near_name("shop.exe", {"show.exe", "shop1.exe", "Shop"}), "Shop");
}

TEST(NearName, IsNoneThatIsJustAnother) {
    EXPECT_EQ(near_name("MyService.exe", {"YourServer.exe", "", std::string(100'000, 'a')}),
              std::nullopt);
    EXPECT_EQ(near_name("a.exe", {"b.exe"}), std::nullopt);
    EXPECT_EQ(near_name("", {"b.exe"}), std::nullopt);
}

} // namespace
} // namespace corvane::tool
