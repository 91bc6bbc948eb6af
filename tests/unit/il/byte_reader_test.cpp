#include "il/byte_reader.h"

#include <gtest/gtest.h>

#include <vector>

namespace corvane {
namespace {

// A vector made from a list holds exactly these bytes on the heap, so that AddressSanitizer sees an
// overread.
using Bytes = std::vector<std::uint8_t>;

TEST(ByteReader, ReadsLittleEndianIntegersOfEveryWidth) {
    const Bytes bytes{0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B,
                      0x0C, 0x0D, 0x0E, 0x0F, 0xFE, 0xFD, 0xFF, 0xFF, 0xFF, 0x7F};
    ByteReader reader(bytes);
    EXPECT_EQ(reader.read<std::uint8_t>(), 0x01);
    EXPECT_EQ(reader.read<std::uint16_t>(), 0x0302);
    EXPECT_EQ(reader.read<std::uint32_t>(), 0x07060504U);
    EXPECT_EQ(reader.read<std::uint64_t>(), 0x0F0E0D0C0B0A0908U);
    EXPECT_EQ(reader.position(), 15U);
    EXPECT_EQ(reader.read<std::int8_t>(), -2);
    EXPECT_EQ(reader.read<std::int32_t>(), -3);
    EXPECT_EQ(reader.remaining(), 1U);
    EXPECT_EQ(reader.cursor(), bytes.data() + 20);
}

TEST(ByteReader, AFailedReadGivesNothingAndMovesNothing) {
    const Bytes bytes{0x01, 0x02, 0x03};
    ByteReader reader(bytes);
    EXPECT_EQ(reader.read<std::uint32_t>(), std::nullopt);
    EXPECT_EQ(reader.position(), 0U);
    EXPECT_TRUE(reader.skip(3));
    EXPECT_EQ(reader.read<std::uint8_t>(), std::nullopt);
    EXPECT_EQ(reader.remaining(), 0U);
}

TEST(ByteReader, SkipsNoFurtherThanTheEnd) {
    const Bytes bytes{0x01, 0x02};
    ByteReader reader(bytes);
    EXPECT_FALSE(reader.skip(3));
    EXPECT_FALSE(reader.skip(SIZE_MAX));
    EXPECT_EQ(reader.position(), 0U);
    EXPECT_TRUE(reader.skip(2));
    EXPECT_TRUE(reader.skip(0));
    EXPECT_FALSE(reader.skip(1));
    EXPECT_EQ(reader.position(), 2U);
}

TEST(ByteReader, AnEmptyRangeHasNothingToRead) {
    ByteReader reader(nullptr, nullptr);
    EXPECT_EQ(reader.remaining(), 0U);
    EXPECT_EQ(reader.read<std::uint8_t>(), std::nullopt);
    EXPECT_EQ(reader.read_compressed(), std::nullopt);
    EXPECT_TRUE(reader.skip(0));
}

struct Compressed {
    Bytes bytes;
    std::uint32_t value;
};

class ByteReaderCompressed : public testing::TestWithParam<Compressed> {};

TEST_P(ByteReaderCompressed, YieldsTheValueAndStopsBehindIt) {
    Bytes bytes = GetParam().bytes;
    const std::size_t length = bytes.size();
    bytes.push_back(0xFF);
    ByteReader reader(bytes);
    EXPECT_EQ(reader.read_compressed(), GetParam().value);
    EXPECT_EQ(reader.position(), length);
}

TEST_P(ByteReaderCompressed, FailsWhenTruncated) {
    for (std::size_t length = 0; length < GetParam().bytes.size(); ++length) {
        const Bytes bytes(GetParam().bytes.data(), GetParam().bytes.data() + length);
        ByteReader reader(bytes);
        EXPECT_EQ(reader.read_compressed(), std::nullopt) << length;
        EXPECT_EQ(reader.position(), 0U);
    }
}

INSTANTIATE_TEST_SUITE_P(
    EveryWidth, ByteReaderCompressed,
    testing::Values(Compressed{{0x00}, 0}, Compressed{{0x03}, 0x03}, Compressed{{0x7F}, 0x7F},
                    Compressed{{0x80, 0x80}, 0x80}, Compressed{{0xAE, 0x57}, 0x2E57},
                    Compressed{{0xBF, 0xFF}, 0x3FFF}, Compressed{{0xC0, 0x00, 0x40, 0x00}, 0x4000},
                    Compressed{{0xDF, 0xFF, 0xFF, 0xFF}, 0x1FFFFFFF},
                    // Longer than necessary, which the format does not forbid a reader to take.
                    Compressed{{0x80, 0x03}, 3}, Compressed{{0xC0, 0x00, 0x00, 0x03}, 3}));

TEST(ByteReader, RefusesEveryLeadByteThatStartsNoCompressedInteger) {
    for (unsigned lead = 0xE0; lead <= 0xFF; ++lead) {
        const Bytes bytes{static_cast<std::uint8_t>(lead), 0x00, 0x00, 0x00, 0x00};
        ByteReader reader(bytes);
        EXPECT_EQ(reader.read_compressed(), std::nullopt) << lead;
        EXPECT_EQ(reader.position(), 0U);
    }
}

} // namespace
} // namespace corvane
