#include "tools/corvane/runtime_config.h"

#include <gtest/gtest.h>

namespace corvane::tool {
namespace {

std::string version_of(const std::string& options) {
    return read_runtime_config("{\"runtimeOptions\": {" + options + "}}").version;
}

TEST(RuntimeConfig, HasTheVersionOfTheFirstFramework) {
    EXPECT_EQ(version_of(R"("framework": {"version": "6.0.1", "name": "x"})"), "6.0.1");
    EXPECT_EQ(version_of(R"("frameworks": [{"name": "x", "version": "7.0.0"}, {"version": "8"}])"),
              "7.0.0");
    EXPECT_EQ(version_of(R"("includedFrameworks": [{"version": "9.0.2"}])"), "9.0.2");
    for (const char* const none :
         {R"("framework": {"version": 6})", R"("framework": [])", R"("frameworks": [])",
          R"("frameworks": {"version": "6.0.0"})", R"("frameworks": ["6.0.0"])", ""}) {
        EXPECT_EQ(version_of(none), "") << none;
    }
}

TEST(RuntimeConfig, MayBeAnyText) {
    for (const char* const text : {"", "no JSON", "[1]", "7", R"({"runtimeOptions": []})"}) {
        const RuntimeConfig config = read_runtime_config(text);
        EXPECT_EQ(config.version, "") << text;
        EXPECT_TRUE(config.has_hooks) << text;
        EXPECT_FALSE(runs_before_net_8(config, {})) << text;
    }
    EXPECT_EQ(read_runtime_config("// a comment\n"
                                  R"({"runtimeOptions": {"framework": {"version": "8.0.0"}}})")
                  .version,
              "8.0.0");
}

TEST(RuntimeConfig, SaysThatHooksAreOff) {
    const auto has_hooks = [](const std::string& value) {
        return read_runtime_config(R"({"runtimeOptions": {"configProperties": )"
                                   R"({"System.StartupHookProvider.IsSupported": )" +
                                   value + "}}}")
            .has_hooks;
    };
    EXPECT_FALSE(has_hooks("false"));
    EXPECT_FALSE(has_hooks("\"false\""));
    EXPECT_TRUE(has_hooks("true"));
    EXPECT_TRUE(has_hooks("0"));
}

TEST(RuntimeConfig, RollsForwardAsItOrTheVariableSays) {
    RuntimeConfig config;
    config.version = "6.0.36";
    EXPECT_TRUE(runs_before_net_8(config, {}));
    EXPECT_FALSE(runs_before_net_8(config, {{L"DOTNET_ROLL_FORWARD", L"Major"}}));
    config.roll_forward = "LatestMajor";
    EXPECT_FALSE(runs_before_net_8(config, {}));
    EXPECT_TRUE(runs_before_net_8(config, {{L"DOTNET_ROLL_FORWARD", L"LatestMinor"}}));
    config = {};
    config.version = "10.0.0";
    EXPECT_FALSE(runs_before_net_8(config, {}));
}

} // namespace
} // namespace corvane::tool
