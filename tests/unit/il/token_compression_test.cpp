#include "il/token_compression.h"

#include <gmock/gmock.h>

namespace corvane {
namespace {

using testing::ElementsAre;

TEST(TokenCompression, TagsTheTable) {
    EXPECT_EQ(coded_type_token(0x02000003), 0x0Cu);
    EXPECT_EQ(coded_type_token(0x01000003), 0x0Du);
    EXPECT_EQ(coded_type_token(0x1B000003), 0x0Eu);
    EXPECT_EQ(coded_type_token(0x72000003), 0x0Fu);
    EXPECT_EQ(coded_type_token(0x06000003), std::nullopt);
}

TEST(TokenCompression, GivesTheTokenBack) {
    for (const std::uint32_t token : {0x02000003u, 0x01000003u, 0x1B000003u, 0x1BFFFFFFu}) {
        EXPECT_EQ(type_token(*coded_type_token(token)), token);
    }
    EXPECT_EQ(type_token(0x0F), std::nullopt); // of a table that no signature names
}

TEST(TokenCompression, TakesOneByteBelow128) {
    for (const auto& token : {*compress_token(0x0100001F), compress_token_to_two_bytes(0x0100001F),
                              compress_token_exactly(0x0100001F)}) {
        EXPECT_THAT(token.bytes(), ElementsAre(0x7D));
    }
}

TEST(TokenCompression, CompressesATokenOfEachTable) {
    for (const auto& [token, byte] : {std::pair(0x02000003u, 0x0C), std::pair(0x01000003u, 0x0D),
                                      std::pair(0x1B000003u, 0x0E), std::pair(0x72000003u, 0x0F)}) {
        EXPECT_THAT(compress_token(token)->bytes(), ElementsAre(byte));
        EXPECT_THAT(compress_token_to_two_bytes(token).bytes(), ElementsAre(byte));
        EXPECT_THAT(compress_token_exactly(token).bytes(), ElementsAre(byte));
    }
}

TEST(TokenCompression, TakesTwoBytesUpTo16383) {
    for (const auto& token : {*compress_token(0x01000020), compress_token_to_two_bytes(0x01000020),
                              compress_token_exactly(0x01000020)}) {
        EXPECT_THAT(token.bytes(), ElementsAre(0x80, 0x81));
    }
    for (const auto& token : {*compress_token(0x1B000FFF), compress_token_to_two_bytes(0x1B000FFF),
                              compress_token_exactly(0x1B000FFF)}) {
        EXPECT_THAT(token.bytes(), ElementsAre(0xBF, 0xFE));
    }
}

TEST(TokenCompression, RefusesOrCutsWhatTakesFour) {
    EXPECT_FALSE(compress_token(0x01001000).has_value());
    EXPECT_THAT(compress_token_to_two_bytes(0x01001000).bytes(), ElementsAre(0xC0, 0x00));
    EXPECT_THAT(compress_token_exactly(0x01001000).bytes(), ElementsAre(0xC0, 0x00, 0x40, 0x01));
    EXPECT_THAT(compress_token_to_two_bytes(0x01ABCDEF).bytes(), ElementsAre(0xC2, 0xAF));
    EXPECT_THAT(compress_token_exactly(0x01ABCDEF).bytes(), ElementsAre(0xC2, 0xAF, 0x37, 0xBD));
}

} // namespace
} // namespace corvane
