// Any token into a blob and any blob into a number: each reader gives back what was written, in the
// length that the number takes. An input is a token and the bytes of a compressed number.
#include "il/byte_reader.h"
#include "il/byte_writer.h"
#include "il/element_type.h"
#include "il/sig_parser.h"
#include "il/token_compression.h"
#include "rewrite/shape/method_signature.h"
#include "tests/fuzz/input.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace corvane {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint32_t kTables[] = {0x02, 0x01, 0x1B, 0x72}; // by their two bits

std::size_t length_of(std::uint32_t value) {
    return value < 0x80 ? 1 : value < 0x4000 ? 2 : 4;
}

// Nothing unless the bytes are one number.
std::optional<std::uint32_t> whole_number(Bytes bytes) {
    ByteReader reader(bytes);
    const auto value = reader.read_compressed();
    return reader.remaining() == 0 ? value : std::nullopt;
}

void check_token(std::uint32_t token) {
    const auto table =
        static_cast<std::uint32_t>(std::ranges::find(kTables, token >> 24) - kTables);
    const auto coded = coded_type_token(token);
    require(coded.has_value() == (table < 4), "a type's token is coded");
    require(!coded || ((*coded & 3) == table && *coded >> 2 == (token & 0xFFFFFF)),
            "the code is the row and the table");
    const std::uint32_t value = coded.value_or(0);

    const CompressedToken exact = compress_token_exactly(token);
    require(exact.bytes().size() == length_of(value), "a token takes its shortest form");
    require(whole_number(exact.bytes()) == value, "a token is read as it was written");

    const auto short_one = compress_token(token);
    require(short_one.has_value() == (exact.bytes().size() <= 2), "a long token is refused");
    require(!short_one || std::ranges::equal(short_one->bytes(), exact.bytes()),
            "a short token is written in its shortest form");

    const CompressedToken cut = compress_token_to_two_bytes(token);
    require(std::ranges::equal(cut.bytes(),
                               exact.bytes().first(std::min<std::size_t>(2, length_of(value)))),
            "a token is cut behind its second byte");
    require(exact.bytes().size() <= 2 || !whole_number(cut.bytes()), "a cut token is no number");

    if (coded) {
        std::vector<std::uint8_t> type = {kElementClass};
        type.insert(type.end(), exact.bytes().begin(), exact.bytes().end());
        require(SignatureType{type}.token() == (table < 3 ? std::optional(token) : std::nullopt),
                "a signature's token is the one that was written");
        type.insert(type.begin(), 0x06); // a field
        SigParser parser;
        require(parser.Parse(type.data(), static_cast<std::uint32_t>(type.size())) &&
                    parser.cursor == parser.sigEnd && parser.current.tokenTable == table &&
                    parser.current.tokenRow == (token & 0xFFFFFF),
                "the parser reads the row and the table");
    }
}

void check_number(Bytes bytes) {
    ByteReader reader(bytes);
    const auto read = reader.read_compressed();
    if (!read) {
        require(reader.position() == 0, "a read that fails moves nothing");
        require(bytes.empty() || bytes[0] >= 0xE0 || (bytes[0] >= 0x80 && bytes.size() < 2) ||
                    (bytes[0] >= 0xC0 && bytes.size() < 4),
                "what is not cut short is a number");
        return;
    }
    const std::uint32_t value = *read;
    require(value < 0x20000000, "a number has 29 bits");
    std::vector<std::uint8_t> shortest;
    ByteWriter(shortest).write_compressed(value);
    require(shortest.size() == length_of(value) && shortest.size() <= reader.position(),
            "a number is written in its shortest form");
    require(whole_number(shortest) == value, "a number is read as it was written");
    std::vector<std::uint8_t> same_length;
    ByteWriter(same_length).write_compressed(value, static_cast<int>(reader.position()));
    require(std::ranges::equal(same_length, bytes.first(reader.position())),
            "a number of a given length has one form");
}

} // namespace
} // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::Input input({data, size});
    const std::uint32_t token = input.number();
    corvane::check_token(token);
    // Any number finds the four tables rarely.
    for (const std::uint32_t table : corvane::kTables) {
        corvane::check_token(table << 24 | (token & 0xFFFFFF));
    }
    corvane::check_number(input.rest());
    return 0;
}
