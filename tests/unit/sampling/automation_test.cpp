#include "sampling/automation.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(Bstr, CopiesItsText) {
    EXPECT_EQ(Bstr().get(), nullptr);
    EXPECT_EQ(Bstr(Bstr()).get(), nullptr);
    const Bstr text(L"Shop");
    Bstr copy(text);
    EXPECT_NE(copy.get(), text.get());
    EXPECT_STREQ(copy.get(), L"Shop");
    EXPECT_EQ(SysStringLen(copy.get()), 4U);

    const Bstr empty(L"");
    ASSERT_NE(empty.get(), nullptr);
    EXPECT_EQ(SysStringLen(empty.get()), 0U);
    copy = empty;
    EXPECT_STREQ(copy.get(), L"");
    copy = Bstr();
    EXPECT_EQ(copy.get(), nullptr);
}

TEST(DoubleArray, IsTheCallersOnceReleased) {
    DoubleArray array(3);
    array.set(0, 1.5);
    array.set(2, -2);
    SAFEARRAY* const result = array.release();
    VARTYPE type = VT_EMPTY;
    EXPECT_EQ(SafeArrayGetVartype(result, &type), S_OK);
    EXPECT_EQ(type, VT_R8);
    EXPECT_EQ(SafeArrayGetDim(result), 1U);
    LONG bound = -1;
    EXPECT_EQ(SafeArrayGetLBound(result, 1, &bound), S_OK);
    EXPECT_EQ(bound, 0);
    EXPECT_EQ(SafeArrayGetUBound(result, 1, &bound), S_OK);
    EXPECT_EQ(bound, 2);
    EXPECT_EQ(result->cLocks, 0U);
    const auto* const values = static_cast<const double*>(result->pvData);
    EXPECT_EQ(values[0], 1.5);
    EXPECT_EQ(values[1], 0);
    EXPECT_EQ(values[2], -2);
    EXPECT_EQ(SafeArrayDestroy(result), S_OK);
}

TEST(DoubleArray, RefusesAnIndexOutside) {
    DoubleArray array(2);
    try {
        array.set(2, 1);
        FAIL() << "it was taken";
    } catch (const ResultError& error) {
        EXPECT_EQ(error.result(), E_INVALIDARG);
    }
}

} // namespace
} // namespace corvane
