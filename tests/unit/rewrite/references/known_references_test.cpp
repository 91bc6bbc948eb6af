#include "rewrite/references/known_references.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

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

TEST(KnownReferences, HaveATokenForEachSignatureOfLocals) {
    constexpr std::array<std::uint8_t, 3> kInt = {0x07, 0x01, 0x08};
    constexpr std::array<std::uint8_t, 3> kLong = {0x07, 0x01, 0x0A};
    EXPECT_FALSE(known_local_signature(kModule, kInt).has_value());
    keep_local_signature(kModule, kInt, 0x11000001);
    keep_local_signature(kModule, kLong, 0x11000002);
    EXPECT_EQ(known_local_signature(kModule, kInt), 0x11000001U);
    EXPECT_EQ(known_local_signature(kModule, kLong), 0x11000002U);
    EXPECT_FALSE(known_local_signature(kModule + 1, kInt).has_value());
    forget_references(kModule);
    EXPECT_FALSE(known_local_signature(kModule, kInt).has_value());
}

} // namespace
} // namespace corvane
