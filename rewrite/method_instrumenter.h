// Instruments one method: its code is put between a prologue and an epilogue and into two protected
// regions. So every exit of it is seen.
#pragma once

#include "selection/chosen_method.h"

namespace corvane {

// The entry of IL rewriting for one chosen method: defines the references that injected code needs,
// reads the body, rewrites and installs it. Returns the result of defining; a rewriting that fails
// is no failure here. A method that fails or that cannot be instrumented safely keeps its body, one
// line on the context's channel says why, and it is left for good (method_outcomes.h). A body that
// is instrumented already, because the runtime compiles the method once more, stays as it is.
HRESULT RewriteMethod(RewriteContext& context, ICorProfilerInfo* info, const method_info& method,
                      InstrumentationMode mode);

} // namespace corvane
