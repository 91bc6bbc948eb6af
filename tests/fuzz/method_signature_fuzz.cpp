// Any blob as a method's signature. One is read when the parser takes the whole of it for a method;
// the types, with their modifiers and marks, are then the blob behind its header, and each is one
// whole type.
#include "il/byte_reader.h"
#include "il/element_type.h"
#include "il/sig_parser.h"
#include "rewrite/shape/method_signature.h"
#include "tests/fuzz/require.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace corvane {
namespace {

using Bytes = std::span<const std::uint8_t>;

bool is_whole(SigParser& parser, Bytes blob) {
    return parser.Parse(blob.data(), static_cast<std::uint32_t>(blob.size())) &&
           parser.cursor == parser.sigEnd;
}

// The first class, value type or generic type that is met.
class FirstToken : public SigParser {
public:
    bool is_met = false;
    std::optional<std::uint32_t> token; // none in a table that has no types

protected:
    void on_type_def_or_ref(std::uint32_t table, std::uint32_t row) override { note(table, row); }
    void on_generic_inst(std::uint8_t /*kind*/, std::uint32_t table, std::uint32_t row,
                         std::uint32_t /*argument_count*/) override {
        note(table, row);
    }

private:
    void note(std::uint32_t table, std::uint32_t row) {
        constexpr std::uint32_t kTables[] = {0x02000000, 0x01000000, 0x1B000000};
        if (!is_met && table < 3) {
            token = kTables[table] | row;
        }
        is_met = true;
    }
};

bool names_a_type(std::uint8_t type) {
    return type == kElementClass || type == kElementValueType || type == kElementGenericInst;
}

void check_type(const SignatureType& type) {
    require(!type.blob.empty(), "a type has an element type");
    const std::uint8_t element = type.element_type();
    if (element == kElementCModReqd || element == kElementCModOpt) {
        // Behind the mark of a reference none belongs: the byte is taken for a type.
        require(type.by_ref && type.blob.size() == 1, "modifiers are no part of a type");
        return;
    }
    std::vector<std::uint8_t> field = {0x06};
    field.insert(field.end(), type.blob.begin(), type.blob.end());
    FirstToken parser;
    require(is_whole(parser, field), "a type is one whole type");
    require(type.token() == (names_a_type(element) ? parser.token : std::nullopt),
            "the token is the outermost type's");
    require(type.passing() != Passing::kValueType || element == kElementValueType,
            "what is boxed by its token is a value type");
    require(type.passing() != Passing::kGenericValueType ||
                (element == kElementGenericInst && type.blob[1] == kElementValueType),
            "what is boxed as an instantiation is one of a value type");
}

// Takes one type from the reader, with what stands in front of it.
void take_type(ByteReader& reader, Bytes blob, const SignatureType& type) {
    const auto begin = static_cast<std::size_t>(type.blob.data() - blob.data());
    require(begin >= reader.position() && begin + type.blob.size() <= blob.size(),
            "types follow each other within the blob");
    bool by_ref = false;
    while (reader.position() < begin) {
        const auto mark = reader.read<std::uint8_t>();
        require(mark && !by_ref, "the mark of a reference stands last");
        by_ref = mark == kElementByRef;
        require(
            by_ref || mark == kElementSentinel ||
                ((mark == kElementCModReqd || mark == kElementCModOpt) && reader.read_compressed()),
            "only modifiers and marks stand between types");
    }
    require(reader.position() == begin && by_ref == type.by_ref,
            "a type begins behind its modifiers and its mark");
    require(reader.skip(type.blob.size()), "a type lies within the blob");
}

void check(Bytes blob) {
    constexpr std::uint8_t kLastMethodKind = 0x05;
    const auto read = read_method_signature(blob);
    SigParser parser;
    const bool whole = is_whole(parser, blob) && (blob[0] & 0x0F) <= kLastMethodKind;
    require(read.has_value() == whole, "one whole method signature is read, and nothing else");
    if (!read) {
        return;
    }
    const MethodSignature& signature = *read;
    require(signature.has_this == ((blob[0] & 0x20) != 0), "the first byte says who is called");
    ByteReader reader(blob);
    require(reader.skip(1) && ((blob[0] & 0x10) == 0 || reader.read_compressed()) &&
                reader.read_compressed() == signature.parameters.size(),
            "all parameters are read");
    check_type(signature.result);
    take_type(reader, blob, signature.result);
    for (const SignatureType& parameter : signature.parameters) {
        check_type(parameter);
        take_type(reader, blob, parameter);
    }
    require(reader.remaining() == 0, "nothing follows the last type");
}

} // namespace
} // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::check({data, size});
    return 0;
}
