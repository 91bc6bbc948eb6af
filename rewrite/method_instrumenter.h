// Instruments one method: its code is put between a prologue and an epilogue and into two protected
// regions, so that all its ends are seen.
#pragma once

#include "rewrite/references/instrumentation_references.h"
#include "selection/chosen_method.h"

namespace corvane {

// Reads the body, rewrites and installs it. A method that fails or that cannot be instrumented
// safely keeps its body, and one line on the context's channel says why. A body that is
// instrumented already, because the runtime compiles the method once more, stays as it is; that is
// a success.
HRESULT RewriteMethod(RewriteContext& context, const InstrumentationReferences& references,
                      InstrumentationMode mode);

} // namespace corvane
