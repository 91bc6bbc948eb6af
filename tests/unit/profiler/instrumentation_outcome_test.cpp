#include "profiler/instrumentation_outcome.h"

#include "selection/method_outcomes.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

class InstrumentationOutcomeTest : public ::testing::Test {
protected:
    InstrumentationOutcomeTest() { forget_method_outcomes(); }
    ~InstrumentationOutcomeTest() override { forget_method_outcomes(); }
};

TEST_F(InstrumentationOutcomeTest, SaysHowManyAndWhy) {
    InstrumentationOutcome outcome = {.instrumented = 9, .left = 9, .leftForReason = 9};
    EXPECT_EQ(GetInstrumentationOutcome(&outcome), 0);
    EXPECT_EQ(outcome.instrumented, 0U);
    EXPECT_EQ(outcome.left, 0U);
    EXPECT_EQ(outcome.leftForReason, 0U);
    EXPECT_EQ(outcome.reason.get(), nullptr);
    leave_for_good(1, 1, L"it has generic types");
    leave_for_good(1, 2, L"it is odd");
    leave_for_good(1, 3, L"it is odd");
    count_instrumented();
    EXPECT_EQ(GetInstrumentationOutcome(&outcome), 0);
    EXPECT_EQ(outcome.instrumented, 1U);
    EXPECT_EQ(outcome.left, 3U);
    EXPECT_EQ(outcome.leftForReason, 2U);
    EXPECT_STREQ(outcome.reason.get(), L"it is odd");
}

TEST_F(InstrumentationOutcomeTest, TakesNoNullPointer) {
    EXPECT_EQ(GetInstrumentationOutcome(nullptr), 1);
}

} // namespace
} // namespace corvane
