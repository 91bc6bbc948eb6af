// The decision when the runtime is about to compile a method: is it rewritten, and how?
// Runs on the runtime's compiling threads, several at once, without a lock of its own: the table,
// the switches and the interface are only read. Every outcome is S_OK for the runtime; a method
// that cannot be described or rewritten is compiled unchanged.
#pragma once

#include "selection/chosen_method.h"
#include "selection/method_info.h"

namespace corvane {

// JITCompilationStarted. `rewrite` gets every chosen method.
void on_jit_compilation_started(ICorProfilerInfo* info, FunctionID function,
                                bool transparency_instrumentation, RewriteMethodEntry rewrite);

// JITCachedFunctionSearchStarted: refuses precompiled code for methods of the target table. Entry
// points and methods with the trace attribute keep theirs.
void on_cached_function_search_started(ICorProfilerInfo* info, FunctionID function,
                                       BOOL* use_cached_function);

} // namespace corvane
