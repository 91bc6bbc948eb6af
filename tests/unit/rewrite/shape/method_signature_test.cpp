#include "rewrite/shape/method_signature.h"

#include <gmock/gmock.h>

namespace corvane {

// How a failing test shows it.
static void PrintTo(Passing passing, std::ostream* out) {
    *out << "Passing " << static_cast<int>(passing);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<std::uint8_t>;

// The blob outlives the signature.
MethodSignature read(const Bytes& blob) {
    const auto signature = read_method_signature(blob);
    EXPECT_TRUE(signature);
    return signature.value_or(MethodSignature{});
}

// Of a static method with one parameter.
struct TypeRow {
    Bytes type;
    Passing passing;
    std::optional<std::uint32_t> token = std::nullopt;
};

TEST(MethodSignature, TellsHowATypeIsPassed) {
    const TypeRow rows[] = {
        {{0x02}, Passing::kPrimitive},
        {{0x03}, Passing::kPrimitive},
        {{0x04}, Passing::kPrimitive},
        {{0x05}, Passing::kPrimitive},
        {{0x06}, Passing::kPrimitive},
        {{0x07}, Passing::kPrimitive},
        {{0x08}, Passing::kPrimitive},
        {{0x09}, Passing::kPrimitive},
        {{0x0A}, Passing::kPrimitive},
        {{0x0B}, Passing::kPrimitive},
        {{0x0C}, Passing::kPrimitive},
        {{0x0D}, Passing::kPrimitive},
        {{0x18}, Passing::kPrimitive},
        {{0x19}, Passing::kPrimitive},
        {{0x0E}, Passing::kReference},
        {{0x1C}, Passing::kReference},
        {{0x12, 0x08}, Passing::kReference, 0x02000002},
        {{0x12, 0x09}, Passing::kReference, 0x01000002},
        {{0x12, 0x0A}, Passing::kReference, 0x1B000002},
        {{0x12, 0x0B}, Passing::kReference, std::nullopt},
        {{0x11, 0x81, 0x21}, Passing::kValueType, 0x01000048},
        {{0x1D, 0x08}, Passing::kOtherReference},
        {{0x1D, 0x11, 0x08}, Passing::kOtherReference},
        {{0x14, 0x08, 0x02, 0x00, 0x00}, Passing::kOtherReference},
        {{0x15, 0x12, 0x05, 0x01, 0x08}, Passing::kOtherReference, 0x01000001},
        {{0x15, 0x11, 0x05, 0x01, 0x08}, Passing::kGenericValueType, 0x01000001},
        // What stands innermost does not matter.
        {{0x15, 0x11, 0x05, 0x02, 0x0E, 0x1D, 0x08}, Passing::kGenericValueType, 0x01000001},
        {{0x1D, 0x15, 0x11, 0x05, 0x01, 0x08}, Passing::kOtherReference},
        {{0x15, 0x12, 0x05, 0x01, 0x15, 0x11, 0x05, 0x01, 0x08},
         Passing::kOtherReference,
         0x01000001},
        {{0x0F, 0x08}, Passing::kNotAtAll},
        {{0x0F, 0x01}, Passing::kNotAtAll},
        {{0x1B, 0x00, 0x01, 0x01, 0x08}, Passing::kNotAtAll},
        {{0x16}, Passing::kNotAtAll},
        {{0x13, 0x00}, Passing::kNotAtAll},
        {{0x1E, 0x00}, Passing::kNotAtAll},
    };
    for (const TypeRow& row : rows) {
        Bytes blob = {0x00, 0x01, 0x01};
        blob.insert(blob.end(), row.type.begin(), row.type.end());
        const MethodSignature signature = read(blob);
        ASSERT_EQ(signature.parameters.size(), 1u);
        const SignatureType& type = signature.parameters[0];
        SCOPED_TRACE(testing::PrintToString(row.type));
        EXPECT_EQ(type.passing(), row.passing);
        EXPECT_EQ(type.token(), row.token);
        EXPECT_EQ(Bytes(type.blob.begin(), type.blob.end()), row.type);
        EXPECT_FALSE(type.by_ref);
    }
}

TEST(MethodSignature, TakesTypesOutOfModifiersAndReferences) {
    // int32 modopt& (int32&, string modreq&, object modopt)
    const Bytes blob = {0x20, 0x03, 0x20, 0x05, 0x10, 0x08, 0x10, 0x08, 0x1F,
                        0x05, 0x10, 0x0E, 0x20, 0x05, 0x1F, 0x09, 0x1C};
    const MethodSignature signature = read(blob);
    EXPECT_TRUE(signature.has_this);
    EXPECT_TRUE(signature.result.by_ref);
    EXPECT_THAT(signature.result.blob, ElementsAre(0x08));
    ASSERT_EQ(signature.parameters.size(), 3u);
    EXPECT_TRUE(signature.parameters[0].by_ref);
    EXPECT_THAT(signature.parameters[0].blob, ElementsAre(0x08));
    EXPECT_TRUE(signature.parameters[1].by_ref);
    EXPECT_THAT(signature.parameters[1].blob, ElementsAre(0x0E));
    EXPECT_FALSE(signature.parameters[2].by_ref);
    EXPECT_THAT(signature.parameters[2].blob, ElementsAre(0x1C));
}

TEST(MethodSignature, KeepsAFunctionPointersTypesToItself) {
    // void (method string *(object, int64), int32)
    const Bytes blob = {0x00, 0x02, 0x01, 0x1B, 0x00, 0x02, 0x0E, 0x1C, 0x0A, 0x08};
    const MethodSignature signature = read(blob);
    EXPECT_THAT(signature.result.blob, ElementsAre(0x01));
    ASSERT_EQ(signature.parameters.size(), 2u);
    EXPECT_THAT(signature.parameters[0].blob, ElementsAre(0x1B, 0x00, 0x02, 0x0E, 0x1C, 0x0A));
    EXPECT_THAT(signature.parameters[1].blob, ElementsAre(0x08));
}

TEST(MethodSignature, ReadsAGenericMethod) {
    const Bytes blob = {0x10, 0x01, 0x01, 0x1E, 0x00, 0x1D, 0x1E, 0x00};
    const MethodSignature signature = read(blob);
    EXPECT_FALSE(signature.has_this);
    EXPECT_THAT(signature.result.blob, ElementsAre(0x1E, 0x00));
    ASSERT_EQ(signature.parameters.size(), 1u);
    EXPECT_THAT(signature.parameters[0].blob, ElementsAre(0x1D, 0x1E, 0x00));
}

TEST(MethodSignature, ReadsOneWithoutParameters) {
    const Bytes blob = {0x00, 0x00, 0x01};
    const MethodSignature signature = read(blob);
    EXPECT_FALSE(signature.has_this);
    EXPECT_THAT(signature.parameters, IsEmpty());
}

TEST(MethodSignature, RefusesWhatIsNotOneWholeSignature) {
    for (const Bytes& blob : {Bytes{}, Bytes{0x00}, Bytes{0x00, 0x00}, Bytes{0x00, 0x01, 0x01},
                              Bytes{0x00, 0x01, 0x01, 0x12}, Bytes{0x00, 0x00, 0x01, 0x00},
                              // a field, and locals
                              Bytes{0x06, 0x08}, Bytes{0x07, 0x01, 0x08},
                              // a field of a function pointer's type
                              Bytes{0x06, 0x1B, 0x00, 0x00, 0x01},
                              // int32 modopt behind the mark of a reference
                              Bytes{0x00, 0x01, 0x01, 0x10, 0x20, 0x05, 0x08}}) {
        EXPECT_FALSE(read_method_signature(blob)) << testing::PrintToString(blob);
    }
}

} // namespace
} // namespace corvane
