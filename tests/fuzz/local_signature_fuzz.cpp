// Any signature of locals with any type behind it. The new one counts one local more, ends in the
// type and keeps the rest; if the parser read the old one, it reads the new one.
// An input is a kind, a token, the length of the old signature, the old signature, and the blob of
// a TypeSpec.
#include "il/byte_reader.h"
#include "il/element_type.h"
#include "il/sig_parser.h"
#include "rewrite/body/local_signature.h"
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
using Blob = std::vector<std::uint8_t>;

constexpr std::uint8_t kField = 0x06;
constexpr std::uint8_t kLocals = 0x07;
constexpr std::uint32_t kMaxCount = 0x1FFFFFFF;

// Knows every TypeSpec by one blob.
class Store : public LocalSignatures {
public:
    explicit Store(Bytes blob) : blob_(blob) {}

    std::optional<Bytes> signature(std::uint32_t /*token*/) override { return std::nullopt; }
    std::optional<Bytes> type_spec(std::uint32_t token) override {
        return token >> 24 == 0x1B ? std::optional(blob_) : std::nullopt;
    }
    std::optional<std::uint32_t> token_of(Bytes /*blob*/) override { return std::nullopt; }

private:
    Bytes blob_;
};

Blob joined(Bytes a, Bytes b) {
    Blob both(a.begin(), a.end());
    both.insert(both.end(), b.begin(), b.end());
    return both;
}

bool is_whole(Bytes blob, std::uint8_t kind) {
    SigParser parser;
    return !blob.empty() && blob[0] == kind &&
           parser.Parse(blob.data(), static_cast<std::uint32_t>(blob.size())) &&
           parser.cursor == parser.sigEnd;
}

bool is_type(Bytes blob) {
    return is_whole(joined(Blob{kField}, blob), kField);
}

// The count of a signature that has one; the reader is then at the first type.
std::optional<std::uint32_t> count_of(ByteReader& reader) {
    return reader.read<std::uint8_t>() == kLocals ? reader.read_compressed() : std::nullopt;
}

Blob check_kind(std::uint32_t token, std::uint8_t kind, Bytes type_spec) {
    Store store(type_spec);
    const auto encoded = encode_local_type(token, kind, store);
    const bool done = encoded.has_value();
    const Blob type = encoded.value_or(Blob{kElementObject});
    const std::uint32_t table = token >> 24;
    switch (kind) {
    case kElementValueType:
    case kElementClass:
        require(done == (table == 0x01 || table == 0x02 || table == 0x1B || table == 0x72),
                "a type's token gives a local");
        require(!done || (type[0] == kind && is_type(type) &&
                          SignatureType{type}.token() ==
                              (table == 0x72 ? std::nullopt : std::optional(token))),
                "the local has the token's type");
        break;
    case kElementGenericInst:
        require(done == (table == 0x1B && !type_spec.empty()), "a TypeSpec gives a local");
        require(!done || std::ranges::equal(type, type_spec), "the local has the TypeSpec's type");
        break;
    case kElementSzArray:
        require(done == (token <= 0xFF), "an element type is a byte");
        require(!done || type == Blob{kind, static_cast<std::uint8_t>(token)},
                "the local is an array");
        break;
    default:
        require(!done, "other kinds are refused");
    }
    return type;
}

// The new signature, empty without one.
Blob check_append(Bytes old_blob, Bytes type) {
    ByteReader old_reader(old_blob);
    const auto count = old_blob.empty() ? std::optional<std::uint32_t>(0) : count_of(old_reader);
    const auto appended = append_local(old_blob, type);
    require(appended.has_value() == (count && *count < kMaxCount - 1),
            "a count that can grow grows");
    if (!appended) {
        return {};
    }
    const Blob& blob = appended->blob;
    require(appended->index == *count, "the index is the old count");
    ByteReader reader(blob);
    require(count_of(reader) == *count + 1, "the count grows by one");
    require(std::ranges::equal(Bytes(blob).subspan(reader.position()),
                               joined(old_blob.subspan(old_reader.position()), type)),
            "the types stand as they stood, the new one behind them");
    if ((old_blob.empty() || is_whole(old_blob, kLocals)) &&
        is_whole(joined(Blob{kLocals, 1}, type), kLocals)) {
        require(is_whole(blob, kLocals), "what could be read still can be");
    }
    return blob;
}

void check(Input input) {
    const std::uint8_t kind = input.byte();
    const std::uint32_t token = input.number();
    const Bytes old_blob = input.bytes(input.byte());
    const Bytes type_spec = input.rest();

    check_append(old_blob, check_kind(token, kind, type_spec));
    for (const std::uint8_t known :
         {kElementValueType, kElementClass, kElementGenericInst, kElementSzArray}) {
        const Blob type = check_kind(token, known, type_spec);
        const Blob once = check_append(old_blob, type);
        if (!once.empty()) {
            check_append(once, type);
        }
    }
}

} // namespace
} // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::check(corvane::Input({data, size}));
    return 0;
}
