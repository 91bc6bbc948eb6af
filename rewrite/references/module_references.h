// Module references: what a method's module has to refer to before calls of the managed library can
// be injected into the method. Nothing is kept between methods: a reference that is there already
// is given again. Runs on the runtime's compiling threads; the metadata serialises its own updates.
#pragma once

#include "selection/chosen_method.h"

namespace corvane {

// Leaves a method that was left before. Else it defines the references in the method's module and,
// with all of them, rewrites the method. Returns the result of the last call of the metadata: a
// token that does not fit its signature and a rewriting that fails leave the method as it is, but
// are no failure here. Whatever goes wrong is logged on the context's channel.
HRESULT DefineInstrumentationReferences(RewriteContext& context, ICorProfilerInfo* info,
                                        const method_info& method, InstrumentationMode mode);

} // namespace corvane
