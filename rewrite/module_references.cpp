#include "rewrite/module_references.h"

namespace corvane {

HRESULT DefineInstrumentationReferences(RewriteContext&, ICorProfilerInfo*, const method_info&,
                                        InstrumentationMode) {
    return S_OK;
}

} // namespace corvane
