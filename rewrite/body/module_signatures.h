// Local signatures of a module in the runtime, through the module's own metadata.
// The metadata is opened when the first blob is asked for and kept until the object goes, which
// must be before the module does. One thread owns an object.
#pragma once

#include "clr/com_ptr.h"
#include "clr/cor_profiler.h"
#include "clr/metadata.h"
#include "rewrite/body/local_signature.h"

namespace corvane {

class ModuleSignatures final : public LocalSignatures {
public:
    // `info` is borrowed.
    ModuleSignatures(ICorProfilerInfo* info, ModuleID module) : info_(info), module_(module) {}

    bool signature(std::uint32_t token, std::span<const std::uint8_t>& blob) override;
    bool type_spec(std::uint32_t token, std::span<const std::uint8_t>& blob) override;
    bool token_of(std::span<const std::uint8_t> blob, std::uint32_t& token) override;

private:
    bool open();

    ICorProfilerInfo* info_;
    ModuleID module_;
    ComPtr<IMetaDataImport> import_;
    ComPtr<IMetaDataEmit> emit_; // set last: with it, everything is open
};

} // namespace corvane
