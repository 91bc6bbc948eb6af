#include "il/token_compression.h"

#include "il/byte_writer.h"

#include <algorithm>
#include <vector>

namespace corvane {

namespace {

constexpr std::size_t kTwoBytes = 2;

// In the order of their tags. The last one is the base type's, which is written and never read.
constexpr std::uint32_t kTables[] = {0x02, 0x01, 0x1B, 0x72};
constexpr std::uint32_t kReadTables = 3;

} // namespace

std::optional<std::uint32_t> coded_type_token(std::uint32_t token) {
    const auto* const table = std::ranges::find(kTables, token >> 24);
    if (table == std::end(kTables)) {
        return std::nullopt;
    }
    const auto tag = static_cast<std::uint32_t>(table - std::begin(kTables));
    return (token & 0x00FFFFFF) << 2 | tag;
}

std::optional<std::uint32_t> type_token(std::uint32_t coded) {
    const auto [tag, row] = split_coded_token(coded);
    return tag < kReadTables ? std::optional(kTables[tag] << 24 | row) : std::nullopt;
}

CompressedToken::CompressedToken(std::span<const std::uint8_t> bytes)
    : size_(static_cast<std::uint8_t>(bytes.size())) {
    std::ranges::copy(bytes, bytes_.begin());
}

std::optional<CompressedToken> compress_token(std::uint32_t token) {
    const CompressedToken compressed = compress_token_exactly(token);
    return compressed.bytes().size() <= kTwoBytes ? std::optional(compressed) : std::nullopt;
}

CompressedToken compress_token_to_two_bytes(std::uint32_t token) {
    const CompressedToken compressed = compress_token_exactly(token);
    const auto bytes = compressed.bytes();
    return CompressedToken(bytes.first(std::min(bytes.size(), kTwoBytes)));
}

CompressedToken compress_token_exactly(std::uint32_t token) {
    std::vector<std::uint8_t> bytes;
    ByteWriter(bytes).write_compressed(coded_type_token(token).value_or(0));
    return CompressedToken(bytes);
}

} // namespace corvane
