// FailingMetadata, FailingEmit: the metadata interfaces, answering every method with E_FAIL. What a
// test needs of them it overrides.
#pragma once

#include "clr/metadata.h"
#include "tests/support/metadata_methods.h"

namespace corvane::testing {

#define CORVANE_FAIL(name, parameters)                                                             \
    HRESULT STDMETHODCALLTYPE name parameters override {                                           \
        return E_FAIL;                                                                             \
    }

class FailingMetadata : public IMetaDataImport, public IMetaDataAssemblyImport {
public:
    METADATA_IMPORT_METHODS(CORVANE_FAIL)
    METADATA_ASSEMBLY_IMPORT_METHODS(CORVANE_FAIL)
    void STDMETHODCALLTYPE CloseEnum(HCORENUM) override {}
    BOOL STDMETHODCALLTYPE IsValidToken(mdToken) override { return FALSE; }
};

class FailingEmit : public IMetaDataEmit, public IMetaDataAssemblyEmit {
public:
    METADATA_EMIT_METHODS(CORVANE_FAIL)
    METADATA_ASSEMBLY_EMIT_METHODS(CORVANE_FAIL)
};

#undef CORVANE_FAIL

} // namespace corvane::testing
