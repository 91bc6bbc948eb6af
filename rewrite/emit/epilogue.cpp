#include "rewrite/emit/epilogue.h"

#include "il/element_type.h"
#include "rewrite/emit/trace_texts.h"

namespace corvane {

namespace {

void emit_result(const Emission& emission, IlBuilder& il,
                 std::optional<std::uint8_t> return_local) {
    const PassedValue& result = emission.shape.result;
    if (!return_local || result.as == PassedValue::As::kNothing) {
        il.ldnull();
        return;
    }
    il.ldloc_s(*return_local);
    if (result.as == PassedValue::As::kBoxed) {
        il.box(result.type);
    }
}

} // namespace

HRESULT EmitEpilogue(Emission& emission, IlBuilder& il, std::optional<std::uint8_t> return_local) {
    const InstrumentationReferences& to = emission.references;
    mdString text = mdStringNil;
    std::uint8_t array = 0;
    std::uint8_t directives = 0;
    HRESULT hr = add_locals(emission, {{array, kElementObject, kElementSzArray},
                                       {directives, to.directives_type, kElementClass}});
    if (SUCCEEDED(hr)) {
        hr = define_trace_text(emission, kEpilogueFailed, text);
    }
    if (FAILED(hr)) {
        return hr;
    }

    Instruction* const gate = emit_gate(emission, il);
    Instruction* const call = il.ldc_i4(emission.index);
    il.newobj(to.directives_constructor);
    il.stloc_s(directives);
    emit_receiver(emission, il);
    emit_argument_array(emission, il, array);
    il.ldloc_s(array);
    emit_result(emission, il, return_local);
    il.ldloc_s(directives);
    il.call(to.generic_epilogue);
    emit_guard(emission, il, gate != nullptr ? gate : call, text);
    return S_OK;
}

} // namespace corvane
