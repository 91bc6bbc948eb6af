// Local variable signatures (ECMA-335 II.23.2.6): one more local behind those that a blob declares.
// Pure functions over blobs; LocalSignatures is the part of a module's metadata that they need.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace corvane {

// The module's metadata as far as local signatures go. Blobs that it hands out stay valid while the
// module is open. Nothing: the metadata refused.
class LocalSignatures {
public:
    using Blob = std::span<const std::uint8_t>;

    virtual ~LocalSignatures() = default;
    virtual std::optional<Blob> signature(std::uint32_t token) = 0;
    virtual std::optional<Blob> type_spec(std::uint32_t token) = 0;
    virtual std::optional<std::uint32_t> token_of(Blob blob) = 0;
};

// The type of a local of one of the four kinds that take a token or an element type. Nothing for
// any other kind, a token that is no type's, an element type that is no byte, or an unknown
// TypeSpec.
[[nodiscard]] std::optional<std::vector<std::uint8_t>>
encode_local_type(std::uint32_t token_or_element_type, std::uint8_t kind,
                  LocalSignatures& signatures);

struct AppendedLocal {
    std::vector<std::uint8_t> blob; // the signature with the new type behind the others
    std::uint32_t index;            // of the new local
};

// Nothing for a malformed old blob and for more locals than a count can say. An empty old blob
// stands for a method without locals.
[[nodiscard]] std::optional<AppendedLocal> append_local(std::span<const std::uint8_t> old_blob,
                                                        std::span<const std::uint8_t> type);

} // namespace corvane
