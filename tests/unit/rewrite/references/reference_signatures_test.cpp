#include "rewrite/references/reference_signatures.h"

#include <gmock/gmock.h>

namespace corvane {
namespace {

using testing::ElementsAre;

const CompressedToken kShort = compress_token_exactly(0x01000003);    // 0D
const CompressedToken kUsual = compress_token_exactly(0x01000123);    // 84 8D
const CompressedToken kLong = compress_token_exactly(0x01001234);     // C0 00 48 D1
const CompressedToken kCut = compress_token_to_two_bytes(0x01001234); // C0 00

constexpr BlobForm kFixed = BlobForm::kFixedLength;
constexpr BlobForm kExact = BlobForm::kExact;

TEST(ReferenceSignatures, WithoutATokenAreTheSameInBothForms) {
    EXPECT_THAT(constructor_signature(), ElementsAre(0x20, 0x00, 0x01));
    EXPECT_THAT(get_indexes_signature(), ElementsAre(0x20, 0x00, 0x1D, 0x08));
    EXPECT_THAT(log_signature(), ElementsAre(0x00, 0x02, 0x01, 0x08, 0x0E));
    EXPECT_THAT(contains_key_signature(), ElementsAre(0x00, 0x01, 0x02, 0x09));
}

TEST(ReferenceSignatures, AreTheSameInBothFormsWithATokenOfTwoBytes) {
    for (const BlobForm form : {kFixed, kExact}) {
        EXPECT_THAT(error_signature(kUsual, form),
                    ElementsAre(0x00, 0x02, 0x02, 0x0E, 0x12, 0x84, 0x8D));
        EXPECT_THAT(generic_prologue_signature(kUsual, form),
                    ElementsAre(0x00, 0x04, 0x01, 0x09, 0x1C, 0x1D, 0x1C, 0x12, 0x84, 0x8D));
        EXPECT_THAT(generic_epilogue_signature(kUsual, form),
                    ElementsAre(0x00, 0x05, 0x01, 0x09, 0x1C, 0x1D, 0x1C, 0x1C, 0x12, 0x84, 0x8D));
        EXPECT_THAT(get_current_method_signature(kUsual, form),
                    ElementsAre(0x00, 0x00, 0x12, 0x84, 0x8D));
        EXPECT_THAT(register_method_signature(kUsual, form),
                    ElementsAre(0x00, 0x03, 0x01, 0x09, 0x12, 0x84, 0x8D, 0x02));
    }
}

TEST(ReferenceSignatures, KeepTheirLengthWithATokenOfOneByte) {
    EXPECT_THAT(error_signature(kShort, kFixed),
                ElementsAre(0x00, 0x02, 0x02, 0x0E, 0x12, 0x0D, 0x00));
    EXPECT_THAT(generic_prologue_signature(kShort, kFixed),
                ElementsAre(0x00, 0x04, 0x01, 0x09, 0x1C, 0x1D, 0x1C, 0x12, 0x0D, 0x00));
    EXPECT_THAT(generic_epilogue_signature(kShort, kFixed),
                ElementsAre(0x00, 0x05, 0x01, 0x09, 0x1C, 0x1D, 0x1C, 0x1C, 0x12, 0x0D, 0x00));
    EXPECT_THAT(get_current_method_signature(kShort, kFixed),
                ElementsAre(0x00, 0x00, 0x12, 0x0D, 0x00));
    EXPECT_THAT(register_method_signature(kShort, kFixed),
                ElementsAre(0x00, 0x03, 0x01, 0x09, 0x12, 0x0D, 0x00, 0x02));
}

TEST(ReferenceSignatures, KeepTheirLengthWithATokenThatWasCut) {
    EXPECT_THAT(get_current_method_signature(kCut, kFixed),
                ElementsAre(0x00, 0x00, 0x12, 0xC0, 0x00));
    EXPECT_THAT(register_method_signature(kCut, kFixed),
                ElementsAre(0x00, 0x03, 0x01, 0x09, 0x12, 0xC0, 0x00, 0x02));
}

TEST(ReferenceSignatures, AreAsLongAsTheirTokenInExactForm) {
    EXPECT_THAT(error_signature(kShort, kExact), ElementsAre(0x00, 0x02, 0x02, 0x0E, 0x12, 0x0D));
    EXPECT_THAT(register_method_signature(kShort, kExact),
                ElementsAre(0x00, 0x03, 0x01, 0x09, 0x12, 0x0D, 0x02));
    EXPECT_THAT(register_method_signature(kLong, kExact),
                ElementsAre(0x00, 0x03, 0x01, 0x09, 0x12, 0xC0, 0x00, 0x48, 0xD1, 0x02));
}

} // namespace
} // namespace corvane
