#include "rewrite/references/reference_signatures.h"

#include <gmock/gmock.h>

namespace corvane {
namespace {

using testing::ElementsAre;

namespace signature = reference_signature;

constexpr std::uint32_t kShort = 0x01000003; // 0D
constexpr std::uint32_t kUsual = 0x01000123; // 84 8D
constexpr std::uint32_t kLong = 0x01001234;  // C0 00 48 D1

constexpr BlobForm kFixed = BlobForm::kFixedLength;
constexpr BlobForm kExact = BlobForm::kExact;

TEST(ReferenceSignatures, WithoutATokenAreTheSameInBothForms) {
    for (const BlobForm form : {kFixed, kExact}) {
        EXPECT_THAT(signature_blob(signature::kConstructor, 0, form),
                    ElementsAre(0x20, 0x00, 0x01));
        EXPECT_THAT(signature_blob(signature::kGetIndexes, 0, form),
                    ElementsAre(0x20, 0x00, 0x1D, 0x08));
        EXPECT_THAT(signature_blob(signature::kLog, 0, form),
                    ElementsAre(0x00, 0x02, 0x01, 0x08, 0x0E));
        EXPECT_THAT(signature_blob(signature::kContainsKey, 0, form),
                    ElementsAre(0x00, 0x01, 0x02, 0x09));
        EXPECT_THAT(signature_blob(signature::kHasListeners, 0, form),
                    ElementsAre(0x00, 0x00, 0x02));
    }
}

TEST(ReferenceSignatures, AreTheSameInBothFormsWithATokenOfTwoBytes) {
    for (const BlobForm form : {kFixed, kExact}) {
        EXPECT_THAT(signature_blob(signature::kError, kUsual, form),
                    ElementsAre(0x00, 0x02, 0x02, 0x0E, 0x12, 0x84, 0x8D));
        EXPECT_THAT(signature_blob(signature::kGenericPrologue, kUsual, form),
                    ElementsAre(0x00, 0x04, 0x01, 0x09, 0x1C, 0x1D, 0x1C, 0x12, 0x84, 0x8D));
        EXPECT_THAT(signature_blob(signature::kGenericEpilogue, kUsual, form),
                    ElementsAre(0x00, 0x05, 0x01, 0x09, 0x1C, 0x1D, 0x1C, 0x1C, 0x12, 0x84, 0x8D));
        EXPECT_THAT(signature_blob(signature::kGetCurrentMethod, kUsual, form),
                    ElementsAre(0x00, 0x00, 0x12, 0x84, 0x8D));
        EXPECT_THAT(signature_blob(signature::kRegisterMethod, kUsual, form),
                    ElementsAre(0x00, 0x03, 0x01, 0x09, 0x12, 0x84, 0x8D, 0x02));
    }
}

TEST(ReferenceSignatures, KeepTheirLengthWithATokenOfOneByte) {
    EXPECT_THAT(signature_blob(signature::kError, kShort, kFixed),
                ElementsAre(0x00, 0x02, 0x02, 0x0E, 0x12, 0x0D, 0x00));
    EXPECT_THAT(signature_blob(signature::kGenericPrologue, kShort, kFixed),
                ElementsAre(0x00, 0x04, 0x01, 0x09, 0x1C, 0x1D, 0x1C, 0x12, 0x0D, 0x00));
    EXPECT_THAT(signature_blob(signature::kGenericEpilogue, kShort, kFixed),
                ElementsAre(0x00, 0x05, 0x01, 0x09, 0x1C, 0x1D, 0x1C, 0x1C, 0x12, 0x0D, 0x00));
    EXPECT_THAT(signature_blob(signature::kGetCurrentMethod, kShort, kFixed),
                ElementsAre(0x00, 0x00, 0x12, 0x0D, 0x00));
    EXPECT_THAT(signature_blob(signature::kRegisterMethod, kShort, kFixed),
                ElementsAre(0x00, 0x03, 0x01, 0x09, 0x12, 0x0D, 0x00, 0x02));
}

TEST(ReferenceSignatures, KeepTheirLengthWithATokenThatWasCut) {
    EXPECT_THAT(signature_blob(signature::kGetCurrentMethod, kLong, kFixed),
                ElementsAre(0x00, 0x00, 0x12, 0xC0, 0x00));
    EXPECT_THAT(signature_blob(signature::kRegisterMethod, kLong, kFixed),
                ElementsAre(0x00, 0x03, 0x01, 0x09, 0x12, 0xC0, 0x00, 0x02));
}

TEST(ReferenceSignatures, AreAsLongAsTheirTokenInExactForm) {
    EXPECT_THAT(signature_blob(signature::kError, kShort, kExact),
                ElementsAre(0x00, 0x02, 0x02, 0x0E, 0x12, 0x0D));
    EXPECT_THAT(signature_blob(signature::kRegisterMethod, kShort, kExact),
                ElementsAre(0x00, 0x03, 0x01, 0x09, 0x12, 0x0D, 0x02));
    EXPECT_THAT(signature_blob(signature::kRegisterMethod, kLong, kExact),
                ElementsAre(0x00, 0x03, 0x01, 0x09, 0x12, 0xC0, 0x00, 0x48, 0xD1, 0x02));
}

} // namespace
} // namespace corvane
