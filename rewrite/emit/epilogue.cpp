#include "rewrite/emit/epilogue.h"

#include "il/element_type.h"
#include "rewrite/emit/trace_texts.h"

namespace corvane {

namespace {

void emit_result(IlBuilder& il, const PassedValue& result, std::uint32_t return_local) {
    if (return_local == kNoReturnLocal || result.as == PassedValue::As::kNothing) {
        il.ldnull();
        return;
    }
    il.ldloc_s(return_local);
    if (result.as == PassedValue::As::kBoxed) {
        il.box(result.type);
    }
}

} // namespace

HRESULT EmitEpilogue(Emission& emission, IlBuilder& il, std::uint32_t return_local) {
    const InstrumentationReferences& to = emission.references;
    Locals locals(emission);
    const std::uint32_t array = locals.add(kElementObject, kElementSzArray);
    const std::uint32_t directives = locals.add(to.directives_type, kElementClass);
    mdString text = mdStringNil;
    HRESULT hr = locals.result();
    if (SUCCEEDED(hr)) {
        hr = DefineTraceText(emission, kEpilogueFailed, text);
    }
    if (FAILED(hr)) {
        return hr;
    }

    Instruction* const first = il.ldc_i4(emission.index);
    il.newobj(to.directives_constructor);
    il.stloc_s(directives);
    EmitReceiver(il, emission.shape);
    EmitArgumentArray(il, emission, array);
    il.ldloc_s(array);
    emit_result(il, emission.shape.result, return_local);
    il.ldloc_s(directives);
    il.call(to.generic_epilogue);
    EmitGuard(il, emission, first, text);
    return S_OK;
}

} // namespace corvane
