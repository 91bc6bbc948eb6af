// Module references: a method's module needs references before calls of the managed library can be
// injected into the method. An existing reference is returned again. Runs on the runtime's
// compiling threads; the metadata serialises its own updates.
#pragma once

#include "rewrite/references/instrumentation_references.h"
#include "selection/chosen_method.h"

#include <optional>
#include <string>

namespace corvane {

// What became of it.
struct DefinedReferences {
    // Of the last call of the metadata. A token that does not fit its signature, and a library that
    // will not be found, are no failures.
    HRESULT result = S_OK;
    std::optional<InstrumentationReferences> references; // all of them, or none
    std::wstring reason;                                 // for none
};

// Defines the references in the method's module. Whatever goes wrong is logged on the context's
// channel. Strict IL asks for blobs of exact length.
DefinedReferences DefineInstrumentationReferences(RewriteContext& context, ICorProfilerInfo* info,
                                                  const method_info& method, bool strict);

} // namespace corvane
