// Blobs are returned as the metadata keeps them: they stay in place while it is open.

#include "rewrite/body/module_signatures.h"

namespace corvane {

std::optional<LocalSignatures::Blob> ModuleSignatures::signature(std::uint32_t token) {
    PCCOR_SIGNATURE bytes = nullptr;
    ULONG size = 0;
    return SUCCEEDED(import_->GetSigFromToken(token, &bytes, &size))
               ? std::optional(Blob(bytes, size))
               : std::nullopt;
}

std::optional<LocalSignatures::Blob> ModuleSignatures::type_spec(std::uint32_t token) {
    PCCOR_SIGNATURE bytes = nullptr;
    ULONG size = 0;
    return SUCCEEDED(import_->GetTypeSpecFromToken(token, &bytes, &size))
               ? std::optional(Blob(bytes, size))
               : std::nullopt;
}

std::optional<std::uint32_t> ModuleSignatures::token_of(Blob blob) {
    mdSignature token = mdSignatureNil;
    return SUCCEEDED(emit_->GetTokenFromSig(blob.data(), static_cast<ULONG>(blob.size()), &token))
               ? std::optional(token)
               : std::nullopt;
}

} // namespace corvane
