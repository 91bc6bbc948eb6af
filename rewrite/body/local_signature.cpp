// Builds local signatures from the existing blob and the added type.

#include "rewrite/body/local_signature.h"

#include "il/byte_reader.h"
#include "il/byte_writer.h"
#include "il/element_type.h"
#include "il/token_compression.h"

#include <algorithm>

namespace corvane {

namespace {

constexpr std::uint8_t kLocalSignature = 0x07;
constexpr std::uint32_t kMaxCompressed = 0x1FFFFFFF;
constexpr std::uint32_t kNoToken = 0xFF000000; // of no table

// The longer forms begin one count earlier than they must, which every reader accepts.
int count_length(std::uint32_t count) {
    return count < 127 ? 1 : count < 16383 ? 2 : 4;
}

} // namespace

std::optional<LocalSignatures::Blob> GrowingSignature::signature(std::uint32_t token) {
    return token == token_ ? std::optional(Blob(blob_)) : module_.signature(token);
}

std::optional<LocalSignatures::Blob> GrowingSignature::type_spec(std::uint32_t token) {
    return module_.type_spec(token);
}

// Another token each time: callers tell by it that there is a new signature.
std::optional<std::uint32_t> GrowingSignature::token_of(Blob blob) {
    blob_.assign(blob.begin(), blob.end());
    token_ = std::max(token_, kNoToken) + 1;
    return token_;
}

bool GrowingSignature::define(std::uint32_t& token) {
    if (token_ == 0 || token != token_) {
        return true; // the metadata has it
    }
    const auto defined = module_.token_of(blob_);
    token = defined.value_or(token);
    return defined.has_value();
}

std::optional<std::vector<std::uint8_t>> encode_local_type(std::uint32_t token_or_element_type,
                                                           std::uint8_t kind,
                                                           LocalSignatures& signatures) {
    std::vector<std::uint8_t> type;
    ByteWriter writer(type);
    switch (kind) {
    case kElementValueType:
    case kElementClass: {
        const auto coded = coded_type_token(token_or_element_type);
        if (!coded) {
            return std::nullopt;
        }
        writer.write(kind);
        writer.write_compressed(*coded);
        return type;
    }
    case kElementGenericInst: {
        const auto blob = signatures.type_spec(token_or_element_type);
        if (!blob || blob->empty()) {
            return std::nullopt;
        }
        writer.write(*blob);
        return type;
    }
    case kElementSzArray:
        if (token_or_element_type > 0xFF) {
            return std::nullopt;
        }
        writer.write(kind);
        writer.write(static_cast<std::uint8_t>(token_or_element_type));
        return type;
    default:
        return std::nullopt;
    }
}

std::optional<AppendedLocal> append_local(std::span<const std::uint8_t> old_blob,
                                          std::span<const std::uint8_t> type) {
    ByteReader reader(old_blob);
    std::uint32_t index = 0;
    if (!old_blob.empty()) {
        if (reader.read<std::uint8_t>() != kLocalSignature) {
            return std::nullopt;
        }
        const auto count = reader.read_compressed();
        if (!count) {
            return std::nullopt;
        }
        index = *count;
    }
    if (index + 1 >= kMaxCompressed) {
        return std::nullopt;
    }
    AppendedLocal local{{}, index};
    ByteWriter writer(local.blob);
    writer.write(kLocalSignature);
    writer.write_compressed(index + 1, count_length(index + 1));
    writer.write(old_blob.subspan(reader.position()));
    writer.write(type);
    return local;
}

} // namespace corvane
