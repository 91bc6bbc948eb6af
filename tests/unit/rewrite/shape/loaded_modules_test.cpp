#include "rewrite/shape/loaded_modules.h"

#include <gtest/gtest.h>

#include <future>

namespace corvane {
namespace {

constexpr ModuleID kListed = 0x10;
constexpr ModuleID kUnlisted = 0x11;

// Nobody looks at it, so that its unloading has nobody to wait for.
TEST(LoadedModules, LetAnUnlistedModuleGoDuringAVisit) {
    add_loaded_module(nullptr, kListed);
    std::future<void> unloading;
    visit_loaded_modules([&](ModuleID module) {
        EXPECT_EQ(module, kListed);
        unloading = std::async(std::launch::async, [] { remove_loaded_module(kUnlisted); });
        EXPECT_EQ(unloading.wait_for(std::chrono::minutes(1)), std::future_status::ready);
        return true;
    });
    ASSERT_TRUE(unloading.valid());
    unloading.wait();
    EXPECT_TRUE(is_loaded_module(kListed));
    remove_loaded_module(kListed);
    EXPECT_FALSE(is_loaded_module(kListed));
}

// Even one that was never listed: the answers about its types are not those of the next module with
// its id.
TEST(LoadedModules, HaveAnotherStateAfterAnyChange) {
    const std::uint64_t before = loaded_modules_state();
    add_loaded_module(nullptr, kListed);
    const std::uint64_t with_one = loaded_modules_state();
    EXPECT_GT(with_one, before);
    remove_loaded_module(kUnlisted);
    const std::uint64_t after = loaded_modules_state();
    EXPECT_GT(after, with_one);
    EXPECT_EQ(loaded_modules_state(), after);
    remove_loaded_module(kListed);
}

} // namespace
} // namespace corvane
