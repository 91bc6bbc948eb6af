#include "selection/method_outcomes.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

class MethodOutcomesTest : public ::testing::Test {
protected:
    MethodOutcomesTest() { forget_method_outcomes(); }
    ~MethodOutcomesTest() override { forget_method_outcomes(); }
};

TEST_F(MethodOutcomesTest, LeftMethodsAreForgottenWithTheirOwnModuleOnly) {
    constexpr mdMethodDef kFirst = 0x06000001;
    constexpr mdMethodDef kLast = 0x06FFFFFF;
    for (const ModuleID module : {0x10, 0x20, 0x30}) {
        leave_for_good(module, kFirst, L"a");
        leave_for_good(module, kLast, L"a");
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
    EXPECT_EQ(method_outcomes().left, 6U);
}

TEST_F(MethodOutcomesTest, TheCommonestReasonIsThatOfMostMethods) {
    EXPECT_EQ(method_outcomes(), MethodOutcomes());
    leave_for_good(1, 1, L"b");
    leave_for_good(1, 2, L"a");
    EXPECT_EQ(method_outcomes(), (MethodOutcomes{0, 2, 1, L"a"}));
    leave_for_good(1, 3, L"b");
    count_instrumented();
    EXPECT_EQ(method_outcomes(), (MethodOutcomes{1, 3, 2, L"b"}));
}

// It is compiled for several tiers or type arguments.
TEST_F(MethodOutcomesTest, AMethodIsCountedOnceForItsFirstReason) {
    leave_for_good(1, 1, L"b");
    leave_for_good(1, 1, L"a");
    leave_for_good(1, 1, L"a");
    EXPECT_EQ(method_outcomes(), (MethodOutcomes{0, 1, 1, L"b"}));
}

TEST_F(MethodOutcomesTest, AMethodThatIsLeftHasItsFirstReason) {
    leave_for_good(1, 1, L"b");
    leave_for_good(1, 1, L"a");
    leave_for_good(2, 1, L"a");
    EXPECT_EQ(reason_left(1, 1), L"b");
    EXPECT_EQ(reason_left(2, 1), L"a");
    EXPECT_EQ(reason_left(1, 2), std::nullopt);
    forget_left_methods(1);
    EXPECT_EQ(reason_left(1, 1), std::nullopt);
    EXPECT_EQ(reason_left(2, 1), L"a");
}

} // namespace
} // namespace corvane
