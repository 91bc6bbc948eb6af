// By-ref-like types (Span<T> and its kind) live on the stack only: code that boxes one does not
// compile. A type that a module only names must be searched for in the module that defines it.
#pragma once

#include "clr/cor_profiler.h"
#include "clr/metadata.h"

namespace corvane {

enum class ByRefLike { kNo, kYes, kUnknown };

// Of the value type that a TypeDef, TypeRef or TypeSpec of the module stands for. A value type is
// loaded before any method that takes one is compiled, so it is found among the loaded modules;
// kUnknown if it is not, or if its module may be taken away. Of several modules with a type of that
// name one whose type is by-ref-like answers. A module that may be taken away can mean a type of
// another such module, which is not asked: for it only a "no" of the runtime's own types counts.
ByRefLike by_ref_like(ICorProfilerInfo* info, ModuleID module, IMetaDataImport* metadata,
                      mdToken type);

} // namespace corvane
