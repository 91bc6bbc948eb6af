// Type tokens in the form of signatures (ECMA-335 II.23.2.8): the row shifted left by two bits,
// with a tag for the table in the free bits. Pure functions.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace corvane {

// TypeDefOrRefOrSpecEncoded, before compression.
struct CodedToken {
    std::uint32_t tag; // 0 TypeDef, 1 TypeRef, 2 TypeSpec
    std::uint32_t row;
};
[[nodiscard]] constexpr CodedToken split_coded_token(std::uint32_t coded) {
    return {coded & 3, coded >> 2};
}

// Nothing for a token that is no type's.
[[nodiscard]] std::optional<std::uint32_t> coded_type_token(std::uint32_t token);
// The way back. Nothing for the tag that stands for none of the three tables.
[[nodiscard]] std::optional<std::uint32_t> type_token(std::uint32_t coded);

// A token within a signature blob.
class CompressedToken {
public:
    CompressedToken() = default;
    // The first bytes of an encoding.
    explicit CompressedToken(std::span<const std::uint8_t> bytes);

    [[nodiscard]] std::span<const std::uint8_t> bytes() const {
        return std::span(bytes_).first(size_);
    }

private:
    std::array<std::uint8_t, 4> bytes_{};
    std::uint8_t size_ = 0;
};

// One or two bytes. Nothing for a coded value above 16,383, which would take four.
[[nodiscard]] std::optional<CompressedToken> compress_token(std::uint32_t token);

// One byte or two: of a value that takes four only the first two bytes are given, which is what the
// blobs of the default form have room for. No reader makes a token of them.
[[nodiscard]] CompressedToken compress_token_to_two_bytes(std::uint32_t token);

// In as many bytes as it takes.
[[nodiscard]] CompressedToken compress_token_exactly(std::uint32_t token);

} // namespace corvane
