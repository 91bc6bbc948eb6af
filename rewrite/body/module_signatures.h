// Local signatures of a module in the runtime, through the module's own metadata.
#pragma once

#include "clr/metadata.h"
#include "rewrite/body/local_signature.h"

namespace corvane {

class ModuleSignatures final : public LocalSignatures {
public:
    // The metadata is borrowed, open for writing: whoever reads a signature here does so to define
    // the next one.
    ModuleSignatures(IMetaDataImport* import, IMetaDataEmit* emit) : import_(import), emit_(emit) {}

    std::optional<Blob> signature(std::uint32_t token) override;
    std::optional<Blob> type_spec(std::uint32_t token) override;
    std::optional<std::uint32_t> token_of(Blob blob) override;

private:
    IMetaDataImport* import_;
    IMetaDataEmit* emit_;
};

} // namespace corvane
