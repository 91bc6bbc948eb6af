// The hand-over from the JIT callbacks to IL rewriting: one chosen method, for the length of one
// call.
#pragma once

#include "base/debug_log.h"
#include "clr/cor_profiler.h"
#include "selection/choice.h"
#include "selection/method_info.h"

namespace corvane {

struct RewriteContext {
    ICorProfilerInfo* info; // the callback's; not counted
    const method_info& method;
    DebugLog log; // tagged with the method's assembly, type and name
};

// The entry of IL rewriting. A negative result leaves the method as it stands.
using RewriteMethodEntry = HRESULT (*)(RewriteContext& context, ICorProfilerInfo* info,
                                       const method_info& method, InstrumentationMode mode);

} // namespace corvane
