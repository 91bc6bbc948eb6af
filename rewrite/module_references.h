// Module references: what a method's module has to refer to before calls of the managed library can
// be injected into the method.
#pragma once

#include "rewrite/rewrite_context.h"

namespace corvane {

// Leaves the method as it is.
HRESULT DefineInstrumentationReferences(RewriteContext& context, ICorProfilerInfo* info,
                                        const method_info& method, InstrumentationMode mode);

} // namespace corvane
