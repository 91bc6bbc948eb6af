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
    CallLocals locals = emission.locals; // strict: the prologue needs them no more
    HRESULT hr = S_OK;
    if (!emission.strict) {
        hr = add_locals(emission, {{locals.array, kElementObject, kElementSzArray},
                                   {locals.directives, to.directives_type, kElementClass}});
    }
    if (SUCCEEDED(hr)) {
        hr = define_trace_text(emission, kEpilogueFailed, text);
    }
    if (FAILED(hr)) {
        return hr;
    }

    Instruction* const first = il.ldc_i4(emission.index);
    il.newobj(to.directives_constructor);
    il.stloc_s(locals.directives);
    emit_receiver(emission, il);
    if (!emission.strict || !emission.shape.parameters.empty()) { // else it is the prologue's
        emit_argument_array(emission, il, locals.array);
    }
    il.ldloc_s(locals.array);
    emit_result(emission, il, return_local);
    il.ldloc_s(locals.directives);
    il.call(to.generic_epilogue);
    emit_guard(emission, il, first, text);
    return S_OK;
}

} // namespace corvane
