// Blobs are handed out as the metadata keeps them: they stay where they are while it is open.

#include "rewrite/body/module_signatures.h"

namespace corvane {

// For writing from the start: whoever reads a signature here does so to define the next one.
bool ModuleSignatures::open() {
    return emit_ ||
           (SUCCEEDED(info_->GetModuleMetaData(module_, ofRead | ofWrite, __uuidof(IMetaDataImport),
                                               import_.put_unknown())) &&
            SUCCEEDED(import_.query(emit_)));
}

bool ModuleSignatures::signature(std::uint32_t token, std::span<const std::uint8_t>& blob) {
    PCCOR_SIGNATURE bytes = nullptr;
    ULONG size = 0;
    if (!open() || FAILED(import_->GetSigFromToken(token, &bytes, &size))) {
        return false;
    }
    blob = {bytes, size};
    return true;
}

bool ModuleSignatures::type_spec(std::uint32_t token, std::span<const std::uint8_t>& blob) {
    PCCOR_SIGNATURE bytes = nullptr;
    ULONG size = 0;
    if (!open() || FAILED(import_->GetTypeSpecFromToken(token, &bytes, &size))) {
        return false;
    }
    blob = {bytes, size};
    return true;
}

bool ModuleSignatures::token_of(std::span<const std::uint8_t> blob, std::uint32_t& token) {
    mdSignature defined = mdSignatureNil;
    if (!open() ||
        FAILED(emit_->GetTokenFromSig(blob.data(), static_cast<ULONG>(blob.size()), &defined))) {
        return false;
    }
    token = defined;
    return true;
}

} // namespace corvane
