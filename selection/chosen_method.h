// The hand-over from the JIT callbacks to IL rewriting: one chosen method, for the length of one
// call.
#pragma once

#include "base/debug_log.h"
#include "clr/cor_profiler.h"
#include "selection/method_info.h"

#include <cstdint>

namespace corvane {

enum class InstrumentationMode : std::uint32_t {
    kTable = 0,     // chosen by the target table, or an entry point
    kAttribute = 1, // chosen by its trace attribute
};

struct RewriteContext {
    ICorProfilerInfo* info; // the callback's; not counted
    const method_info& method;
    DebugLog log; // tagged with the method's assembly, type and name
};

// The entry of IL rewriting. A negative result leaves the method as it stands.
using RewriteMethodEntry = HRESULT (*)(RewriteContext& context, ICorProfilerInfo* info,
                                       const method_info& method, InstrumentationMode mode);

} // namespace corvane
