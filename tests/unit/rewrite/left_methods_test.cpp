#include "rewrite/left_methods.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(LeftMethods, AreForgottenWithTheirOwnModuleOnly) {
    constexpr mdMethodDef kFirst = 0x06000001;
    constexpr mdMethodDef kLast = 0x06FFFFFF;
    for (const ModuleID module : {0x10, 0x20, 0x30}) {
        leave_for_good(module, kFirst);
        leave_for_good(module, kLast);
    }
    EXPECT_FALSE(is_left(0x20, 0x06000002));
    forget_left_methods(0x20);
    for (const mdMethodDef method : {kFirst, kLast}) {
        EXPECT_TRUE(is_left(0x10, method));
        EXPECT_FALSE(is_left(0x20, method));
        EXPECT_TRUE(is_left(0x30, method));
    }
    forget_left_methods(0x10);
    forget_left_methods(0x30);
    EXPECT_FALSE(is_left(0x10, kLast));
    EXPECT_FALSE(is_left(0x30, kFirst));
}

} // namespace
} // namespace corvane
