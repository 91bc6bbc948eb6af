#include "rewrite/references/known_references.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

constexpr ModuleID kModule = 0x20;

TEST(KnownReferences, AreThoseOfTheirModule) {
    InstrumentationReferences references;
    references.log = 0x0A000007;
    EXPECT_FALSE(known_references(kModule).has_value());
    keep_references(kModule, references);
    keep_boxing_type(kModule, 8, 0x01000003);
    ASSERT_TRUE(known_references(kModule).has_value());
    EXPECT_EQ(known_references(kModule)->log, 0x0A000007U);
    EXPECT_EQ(known_boxing_type(kModule, 8), 0x01000003U);
    EXPECT_FALSE(known_boxing_type(kModule, 9).has_value());
    EXPECT_FALSE(known_references(kModule + 1).has_value());
    EXPECT_FALSE(known_boxing_type(kModule + 1, 8).has_value());

    forget_references(kModule + 1);
    EXPECT_TRUE(known_references(kModule).has_value());
    forget_references(kModule);
    EXPECT_FALSE(known_references(kModule).has_value());
    EXPECT_FALSE(known_boxing_type(kModule, 8).has_value());
}

TEST(KnownReferences, MayBeATypeAlone) {
    keep_boxing_type(kModule, 8, 0x01000003);
    EXPECT_FALSE(known_references(kModule).has_value());
    EXPECT_EQ(known_boxing_type(kModule, 8), 0x01000003U);
    forget_references(kModule);
}

} // namespace
} // namespace corvane
