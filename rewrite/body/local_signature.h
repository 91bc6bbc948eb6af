// Local variable signatures (ECMA-335 II.23.2.6): one more local behind those that a blob declares.
// Pure functions over blobs; LocalSignatures is what they need of a module's metadata.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace corvane {

// The module's metadata as far as local signatures go. Blobs that it hands out stay valid while the
// module is open. False: the metadata refused.
class LocalSignatures {
public:
    virtual ~LocalSignatures() = default;
    virtual bool signature(std::uint32_t token, std::span<const std::uint8_t>& blob) = 0;
    virtual bool type_spec(std::uint32_t token, std::span<const std::uint8_t>& blob) = 0;
    virtual bool token_of(std::span<const std::uint8_t> blob, std::uint32_t& token) = 0;
};

// The type of a local of one of the four kinds that take a token or an element type. False for any
// other kind, a token that is no type's, an element type that is no byte, or an unknown TypeSpec.
[[nodiscard]] bool encode_local_type(std::uint32_t token_or_element_type, std::uint8_t kind,
                                     LocalSignatures& signatures, std::vector<std::uint8_t>& type);

// The signature with that type behind the others, and its index. False for a malformed old blob and
// for more locals than a count can say. An empty old blob stands for a method without locals.
[[nodiscard]] bool append_local(std::span<const std::uint8_t> old_blob,
                                std::span<const std::uint8_t> type,
                                std::vector<std::uint8_t>& new_blob, std::uint32_t& index);

} // namespace corvane
