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

// Keeps the signature of one body that grows local by local, and gives it a token that no metadata
// has. `define` puts the last one into the metadata, which searches all that it has for each.
class GrowingSignature final : public LocalSignatures {
public:
    explicit GrowingSignature(LocalSignatures& module) : module_(module) {}

    std::optional<Blob> signature(std::uint32_t token) override;
    std::optional<Blob> type_spec(std::uint32_t token) override;
    std::optional<std::uint32_t> token_of(Blob blob) override;

    // Replaces a token of this object. False if the metadata refused; the token stays as it was.
    [[nodiscard]] bool define(std::uint32_t& token);

private:
    LocalSignatures& module_;
    std::vector<std::uint8_t> blob_;
    std::uint32_t token_ = 0;
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
