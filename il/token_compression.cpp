#include "il/token_compression.h"

namespace corvane {

namespace {

constexpr std::uint32_t kLimitOfOneByte = 0x80;
constexpr std::uint32_t kLimitOfTwoBytes = 0x4000;

std::uint32_t coded_or_zero(std::uint32_t token) {
    return coded_type_token(token).value_or(0);
}

CompressedToken one_byte(std::uint32_t coded) {
    return {{static_cast<std::uint8_t>(coded)}, 1};
}

CompressedToken two_bytes(std::uint32_t coded) {
    return {{static_cast<std::uint8_t>(coded >> 8 | 0x80), static_cast<std::uint8_t>(coded)}, 2};
}

CompressedToken four_bytes(std::uint32_t coded, std::uint8_t size) {
    return {{static_cast<std::uint8_t>(coded >> 24 | 0xC0), static_cast<std::uint8_t>(coded >> 16),
             static_cast<std::uint8_t>(coded >> 8), static_cast<std::uint8_t>(coded)},
            size};
}

CompressedToken compress(std::uint32_t coded, std::uint8_t size_of_long_ones = 4) {
    return coded < kLimitOfOneByte    ? one_byte(coded)
           : coded < kLimitOfTwoBytes ? two_bytes(coded)
                                      : four_bytes(coded, size_of_long_ones);
}

} // namespace

std::optional<std::uint32_t> coded_type_token(std::uint32_t token) {
    const std::uint32_t row = token & 0x00FFFFFF;
    switch (token >> 24) {
    case 0x02: // TypeDef
        return row << 2;
    case 0x01: // TypeRef
        return row << 2 | 1;
    case 0x1B: // TypeSpec
        return row << 2 | 2;
    case 0x72: // base type
        return row << 2 | 3;
    default:
        return std::nullopt;
    }
}

std::optional<CompressedToken> compress_token(std::uint32_t token) {
    const std::uint32_t coded = coded_or_zero(token);
    return coded < kLimitOfTwoBytes ? std::optional(compress(coded)) : std::nullopt;
}

CompressedToken compress_token_to_two_bytes(std::uint32_t token) {
    return compress(coded_or_zero(token), 2);
}

CompressedToken compress_token_exactly(std::uint32_t token) {
    return compress(coded_or_zero(token));
}

} // namespace corvane
