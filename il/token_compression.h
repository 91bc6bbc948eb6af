// Type tokens as they stand in signatures (ECMA-335 II.23.2.8): the row shifted left by two bits,
// the table in the bits set free. Pure functions.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace corvane {

// TypeDefOrRefOrSpecEncoded, before compression. Nothing for a token that is no type's.
[[nodiscard]] std::optional<std::uint32_t> coded_type_token(std::uint32_t token);

// A token within a signature blob.
class CompressedToken {
public:
    CompressedToken() = default;
    CompressedToken(std::array<std::uint8_t, 4> bytes, std::uint8_t size)
        : bytes_(bytes), size_(size) {}

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
