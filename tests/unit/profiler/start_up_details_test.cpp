// What start-up and the loads of modules ask and write besides what they lead to: how often, in
// which order, and at the level of details.
#include "base/debug_log.h"
#include "base/own_module.h"
#include "base/runtime_state.h"
#include "profiler/clr_profiler.h"
#include "profiler/com_object.h"
#include "rewrite/shape/loaded_modules.h"
#include "selection/excluded_scopes.h"
#include "selection/target_methods.h"
#include "tests/support/agent_home.h"
#include "tests/support/debug_output.h"
#include "tests/support/fake_runtime.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace corvane {
namespace {

using testing::AgentHome;
using testing::DebugOutput;
using testing::FakeRuntime;

// A configuration that lists this program, with other things among the applications and the
// settings.
std::string listing_this(const std::string& among_applications, const std::string& settings) {
    const std::string name = std::filesystem::path(own_module_path()).filename().string();
    return "<configuration><appSettings>" + settings +
           "</appSettings><instrumentation><applications>" + among_applications +
           "<application name=\"" + name + "\"/></applications></instrumentation></configuration>";
}

class Details : public ::testing::Test {
protected:
    Details() { default_log = DebugLog(L"", 4); }
    ~Details() override {
        profiler = {};
        profilerInfo2.reset();
        profilerInfo3.reset();
        mscorlibModuleId = 0;
        excluded_scopes.clear();
        target_methods.clear();
        default_log = DebugLog();
    }

    // What start-up writes under a configuration.
    std::wstring start_up(const std::string& config) {
        const std::size_t before = output.text().size();
        const AgentHome home(config);
        excluded_scopes.clear();
        target_methods.clear();
        EXPECT_EQ(profiler->Initialize(&runtime), S_OK);
        runtime.calls.clear();
        return output.text().substr(before);
    }

    FakeRuntime runtime;
    DebugOutput output;
    ComPtr<ComObject<CClrProfiler>> profiler{new ComObject<CClrProfiler>()};
};

TEST_F(Details, DoNotTellOfACommentAmongTheApplications) {
    const std::wstring plain = start_up(listing_this("", ""));
    EXPECT_EQ(plain.find(L"attribute"), plain.npos);
    EXPECT_EQ(start_up(listing_this("<!-- <application/> -->", "")), plain);
    EXPECT_NE(start_up(listing_this("<application/>", "")), plain);
}

// Each look-up tells of the entry without a key.
TEST_F(Details, TellOfOneLookUpForTheValueTwo) {
    const auto look_ups = [this](const std::string& value) {
        const std::wstring text = start_up(
            listing_this("", "<add/><add key=\"SecurityTransparencyInstrumentation\" value=\"" +
                                 value + "\"/>"));
        const std::wstring line =
            L"CClrProfiler::CheckKey(): configuration.appSettings.add element "
            L"does not have key attribute.\n";
        int count = 0;
        for (std::size_t at = text.find(line); at != text.npos; at = text.find(line, at + 1)) {
            ++count;
        }
        return count;
    };
    // Inlining and the two of the trace id besides.
    EXPECT_EQ(look_ups("2"), 4);
    EXPECT_EQ(look_ups("1"), 5);
    EXPECT_EQ(look_ups("0"), 5);
}

TEST_F(Details, TellOfAModuleThatWasLoaded) {
    start_up(listing_this("", ""));
    runtime.modules[0x10] = {L"C:\\runtime\\corelib.dll", 0x20};
    runtime.module_flags = {{0x10, COR_PRF_MODULE_DISK}};
    runtime.assemblies[0x20] = L"mscorlib";
    const std::size_t before = output.text().size();
    EXPECT_EQ(profiler->ModuleLoadFinished(0x10, S_OK), S_OK);
    EXPECT_EQ(output.text().substr(before),
              L"CClrProfiler::ModuleLoadFinished(): Invoked;\n"
              L"CClrProfiler::ModuleLoadFinished(): ModuleName=C:\\runtime\\corelib.dll\n"
              L"CClrProfiler::ModuleLoadFinished(): AssemblyName=mscorlib\n");
    // The last one asks whether the module may be collected.
    EXPECT_EQ(runtime.calls,
              (std::vector<std::string>{"GetModuleInfo", "GetModuleInfo", "GetAssemblyInfo",
                                        "GetAssemblyInfo", "GetModuleInfo2"}));
    EXPECT_TRUE(is_loaded_module(0x10));
    EXPECT_EQ(profiler->ModuleUnloadStarted(0x10), S_OK);
    EXPECT_FALSE(is_loaded_module(0x10));
}

} // namespace
} // namespace corvane
