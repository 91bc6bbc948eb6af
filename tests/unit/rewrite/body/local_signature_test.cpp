// Local signatures: the blobs of each kind of local, counts at every change of their length, and
// the failures, all of which answer with the index 0.
#include "rewrite/body/local_signature.h"

#include "rewrite/body/method_body.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <numeric>
#include <vector>

namespace corvane {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::ElementsAreArray;

// Keeps blobs like a metadata engine that never folds two of them.
class Store : public LocalSignatures {
public:
    std::map<std::uint32_t, Bytes> blobs;
    std::map<std::uint32_t, Bytes> type_specs;
    bool refuses_new = false;

    std::optional<Blob> signature(std::uint32_t token) override { return find(blobs, token); }
    std::optional<Blob> type_spec(std::uint32_t token) override { return find(type_specs, token); }
    std::optional<std::uint32_t> token_of(Blob blob) override {
        if (refuses_new) {
            return std::nullopt;
        }
        const std::uint32_t token = 0x11000001 + static_cast<std::uint32_t>(blobs.size());
        blobs[token] = Bytes(blob.begin(), blob.end());
        return token;
    }

private:
    static std::optional<Blob> find(const std::map<std::uint32_t, Bytes>& from,
                                    std::uint32_t token) {
        const auto found = from.find(token);
        return found != from.end() ? std::optional<Blob>(found->second) : std::nullopt;
    }
};

class AddLocalTest : public testing::Test {
protected:
    AddLocalTest() { body.local_signatures = &store; }

    Bytes current() { return store.blobs.at(body.local_signature); }
    void start_with(const Bytes& blob) {
        body.local_signature = 0x11000099;
        store.blobs[body.local_signature] = blob;
    }

    Store store;
    MethodBody body;
};

TEST_F(AddLocalTest, AppendsEachKindAndReturnsItsIndex) {
    store.type_specs[0x1B000007] = {0x15, 0x12, 0x49, 0x01, 0x0E};
    EXPECT_EQ(body.AddLocal(0x08), 0u);
    EXPECT_THAT(current(), ElementsAre(0x07, 0x01, 0x08));
    EXPECT_EQ(body.AddLocal(0x1C, 0x1D), 1u);
    EXPECT_EQ(body.AddLocal(0x01000012, 0x12), 2u);
    EXPECT_EQ(body.AddLocal(0x02000020, 0x11), 3u);
    EXPECT_EQ(body.AddLocal(0x1B000007, 0x15), 4u);
    EXPECT_EQ(body.AddLocal(0x02), 5u);
    EXPECT_THAT(current(), ElementsAre(0x07, 0x06, 0x08,             // int32
                                       0x1D, 0x1C,                   // object[]
                                       0x12, 0x49,                   // class TypeRef 0x12
                                       0x11, 0x80, 0x80,             // value type TypeDef 0x20
                                       0x15, 0x12, 0x49, 0x01, 0x0E, // the TypeSpec's blob
                                       0x02));                       // bool
}

TEST_F(AddLocalTest, KeepsExistingTypesAsTheyStand) {
    start_with({0x07, 0x02, 0x45, 0x10, 0x08, 0x1B, 0xFF});
    EXPECT_EQ(body.AddLocal(0x0E), 2u);
    EXPECT_THAT(current(), ElementsAre(0x07, 0x03, 0x45, 0x10, 0x08, 0x1B, 0xFF, 0x0E));
}

TEST_F(AddLocalTest, CompressesTokensOfEveryTableAndLength) {
    EXPECT_EQ(body.AddLocal(0x1B000001, 0x11), 0u);
    EXPECT_EQ(body.AddLocal(0x01001000, 0x12), 1u);
    EXPECT_EQ(body.AddLocal(0x02FFFFFF, 0x12), 2u);
    EXPECT_THAT(current(), ElementsAre(0x07, 0x03, 0x11, 0x06, 0x12, 0xC0, 0x00, 0x40, 0x01, 0x12,
                                       0xC3, 0xFF, 0xFF, 0xFC));
}

TEST_F(AddLocalTest, RefusesOtherKindsTokensAndElementTypes) {
    start_with({0x07, 0x01, 0x08});
    for (unsigned kind = 0; kind <= 0xFF; ++kind) {
        if (kind != 0x11 && kind != 0x12 && kind != 0x15 && kind != 0x1D) {
            EXPECT_EQ(body.AddLocal(0x01000001, static_cast<std::uint8_t>(kind)), 0u) << kind;
        }
    }
    EXPECT_EQ(body.AddLocal(0x06000001, 0x12), 0u); // a method's token
    EXPECT_EQ(body.AddLocal(0x1B000001, 0x15), 0u); // an unknown TypeSpec
    EXPECT_EQ(body.AddLocal(0x100, 0x1D), 0u);
    EXPECT_EQ(body.local_signature, 0x11000099u);
    EXPECT_EQ(store.blobs.size(), 1u);
}

TEST_F(AddLocalTest, AnswersZeroToEveryFailureAndKeepsTheSignature) {
    MethodBody without_metadata;
    EXPECT_EQ(without_metadata.AddLocal(0x08), 0u);
    EXPECT_EQ(without_metadata.AddLocal(0x1C, 0x1D), 0u);

    body.local_signature = 0x11000042; // nothing there
    EXPECT_EQ(body.AddLocal(0x08), 0u);
    EXPECT_EQ(body.local_signature, 0x11000042u);

    for (const Bytes& malformed :
         {Bytes{}, Bytes{0x07}, Bytes{0x06, 0x01, 0x08}, Bytes{0x07, 0x80}, Bytes{0x07, 0xE0},
          Bytes{0x07, 0xC0, 0x00, 0x00}, Bytes{0x07, 0xDF, 0xFF, 0xFF, 0xFE}}) {
        start_with(malformed);
        EXPECT_EQ(body.AddLocal(0x08), 0u) << testing::PrintToString(malformed);
        EXPECT_EQ(body.local_signature, 0x11000099u);
    }

    start_with({0x07, 0x01, 0x08});
    store.refuses_new = true;
    EXPECT_EQ(body.AddLocal(0x08), 0u);
    EXPECT_EQ(body.local_signature, 0x11000099u);
}

// Locals of one byte each, and the count of one more in front of them.
struct Count {
    std::uint32_t old_count;
    Bytes old_encoding;
    Bytes new_encoding;
};

class LocalCounts : public testing::TestWithParam<Count> {};

TEST_P(LocalCounts, GrowWhereTheirLengthChanges) {
    const auto& [old_count, old_encoding, new_encoding] = GetParam();
    Bytes old_blob = {0x07};
    old_blob.insert(old_blob.end(), old_encoding.begin(), old_encoding.end());
    old_blob.insert(old_blob.end(), {0x0E, 0x02, 0x1C}); // types are not counted
    Bytes expected = {0x07};
    expected.insert(expected.end(), new_encoding.begin(), new_encoding.end());
    expected.insert(expected.end(), {0x0E, 0x02, 0x1C, 0x08});
    const Bytes type = {0x08};
    const auto local = append_local(old_blob, type);
    ASSERT_TRUE(local);
    EXPECT_EQ(local->index, old_count);
    EXPECT_EQ(local->blob, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, LocalCounts,
    testing::Values(Count{0, {0x00}, {0x01}}, Count{125, {0x7D}, {0x7E}},
                    Count{126, {0x7E}, {0x80, 0x7F}}, Count{127, {0x7F}, {0x80, 0x80}},
                    Count{127, {0x80, 0x7F}, {0x80, 0x80}},
                    Count{16381, {0xBF, 0xFD}, {0xBF, 0xFE}},
                    Count{16382, {0xBF, 0xFE}, {0xC0, 0x00, 0x3F, 0xFF}},
                    Count{0x1FFFFFFD, {0xDF, 0xFF, 0xFF, 0xFD}, {0xDF, 0xFF, 0xFF, 0xFE}}));

TEST(LocalCount, EndsBelowTheLargestCompressedNumber) {
    const Bytes old_blob = {0x07, 0xDF, 0xFF, 0xFF, 0xFE};
    const Bytes type = {0x08};
    EXPECT_FALSE(append_local(old_blob, type));
}

TEST(LocalCount, StartsFromNoBlob) {
    const Bytes type = {0x11, 0x05};
    const auto local = append_local({}, type);
    ASSERT_TRUE(local);
    EXPECT_THAT(local->blob, ElementsAre(0x07, 0x01, 0x11, 0x05));
    EXPECT_EQ(local->index, 0u);
}

// --- A signature that grows

class GrowingSignatureTest : public AddLocalTest {
protected:
    GrowingSignatureTest() { body.local_signatures = &growing; }

    GrowingSignature growing{store};
};

TEST_F(GrowingSignatureTest, IsDefinedOnce) {
    start_with({0x07, 0x01, 0x0E});
    store.type_specs[0x1B000007] = {0x15, 0x12, 0x05, 0x01, 0x08};
    EXPECT_EQ(body.AddLocal(0x08), 1u);
    const std::uint32_t first = body.local_signature;
    EXPECT_EQ(body.AddLocal(0x1B000007, 0x15), 2u);
    EXPECT_NE(body.local_signature, first);
    EXPECT_EQ(store.blobs.size(), 1u); // the one that it started with

    EXPECT_TRUE(growing.define(body.local_signature));
    EXPECT_EQ(store.blobs.size(), 2u);
    EXPECT_THAT(current(), ElementsAre(0x07, 0x03, 0x0E, 0x08, 0x15, 0x12, 0x05, 0x01, 0x08));
}

TEST_F(GrowingSignatureTest, StaysAsItWasWithoutANewLocal) {
    EXPECT_TRUE(growing.define(body.local_signature));
    EXPECT_EQ(body.local_signature, 0u);
    start_with({0x07, 0x01, 0x0E});
    EXPECT_TRUE(growing.define(body.local_signature));
    EXPECT_EQ(body.local_signature, 0x11000099u);
    EXPECT_EQ(store.blobs.size(), 1u);
}

TEST_F(GrowingSignatureTest, SaysThatTheMetadataRefused) {
    EXPECT_EQ(body.AddLocal(0x08), 0u);
    store.refuses_new = true;
    EXPECT_FALSE(growing.define(body.local_signature));
}

} // namespace
} // namespace corvane
