// Builds local signatures from the blob that is there and the type that is to follow.

#include "rewrite/body/local_signature.h"

#include "il/byte_reader.h"
#include "il/byte_writer.h"
#include "il/element_type.h"
#include "il/token_compression.h"

namespace corvane {

namespace {

constexpr std::uint8_t kLocalSignature = 0x07;
constexpr std::uint32_t kMaxCompressed = 0x1FFFFFFF;

// The longer forms begin one count earlier than they must, which every reader accepts.
int count_length(std::uint32_t count) {
    return count < 127 ? 1 : count < 16383 ? 2 : 4;
}

} // namespace

bool encode_local_type(std::uint32_t token_or_element_type, std::uint8_t kind,
                       LocalSignatures& signatures, std::vector<std::uint8_t>& type) {
    ByteWriter writer(type);
    switch (kind) {
    case kElementValueType:
    case kElementClass: {
        const auto coded = coded_type_token(token_or_element_type);
        if (!coded) {
            return false;
        }
        writer.write(kind);
        writer.write_compressed(*coded);
        return true;
    }
    case kElementGenericInst: {
        std::span<const std::uint8_t> blob;
        if (!signatures.type_spec(token_or_element_type, blob)) {
            return false;
        }
        writer.write(blob);
        return !blob.empty();
    }
    case kElementSzArray:
        if (token_or_element_type > 0xFF) {
            return false;
        }
        writer.write(kind);
        writer.write(static_cast<std::uint8_t>(token_or_element_type));
        return true;
    default:
        return false;
    }
}

bool append_local(std::span<const std::uint8_t> old_blob, std::span<const std::uint8_t> type,
                  std::vector<std::uint8_t>& new_blob, std::uint32_t& index) {
    ByteReader reader(old_blob);
    std::uint32_t count = 0;
    if (!old_blob.empty()) {
        std::uint8_t mark = 0;
        if (!reader.read(mark) || mark != kLocalSignature || !reader.read_compressed(count)) {
            return false;
        }
    }
    if (count + 1 >= kMaxCompressed) {
        return false;
    }
    ByteWriter writer(new_blob);
    writer.write(kLocalSignature);
    writer.write_compressed(count + 1, count_length(count + 1));
    writer.write(old_blob.subspan(reader.position()));
    writer.write(type);
    index = count;
    return true;
}

} // namespace corvane
