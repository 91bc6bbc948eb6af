// What the callbacks about methods do with a decision (choice.h), and the lines that each of them
// writes. Runs on the runtime's compiling threads, several at once, without a lock of its own: the
// table, the patterns, the settings and the interface are only read. Every outcome is S_OK for the
// runtime; a method that cannot be described or rewritten is compiled unchanged.
#pragma once

#include "selection/choice.h"
#include "selection/chosen_method.h"

namespace corvane {

// The decision about a method that has been described.
Choice choice_of(ICorProfilerInfo* info, const method_info& method,
                 const SelectionSettings& settings);

// JITCompilationStarted. `rewrite` gets every chosen method.
void on_jit_compilation_started(ICorProfilerInfo* info, FunctionID function,
                                const SelectionSettings& settings, RewriteMethodEntry rewrite);

// JITCachedFunctionSearchStarted: refuses precompiled code for methods of the target table, in
// strict form for every method that would be chosen. Otherwise entry points and methods with the
// trace attribute keep theirs.
void on_cached_function_search_started(ICorProfilerInfo* info, FunctionID function,
                                       const SelectionSettings& settings,
                                       BOOL* use_cached_function);

// JITInlining: in strict form, a method that would be chosen is not inlined.
void on_jit_inlining(ICorProfilerInfo* info, FunctionID callee, const SelectionSettings& settings,
                     BOOL* should_inline);

} // namespace corvane
