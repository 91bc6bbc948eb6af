#include "rewrite/emit/prologue.h"

#include "il/element_type.h"
#include "rewrite/emit/trace_texts.h"

namespace corvane {

namespace {

struct PrologueLocals {
    std::uint32_t array = 0;      // object[], the arguments
    std::uint32_t directives = 0; // InstrumentationDirectives
    std::uint32_t indexes = 0;    // int32[], of the arguments that were replaced
    std::uint32_t counter = 0;    // int32, over those
    std::uint32_t goes_on = 0;    // bool, the loop's condition
    std::uint32_t index = 0;      // int32, the current one
    std::uint32_t is_null = 0;    // bool, its value is
};

HRESULT add_locals(Emission& emission, PrologueLocals& to) {
    Locals locals(emission);
    to.array = locals.add(kElementObject, kElementSzArray);
    to.directives = locals.add(emission.references.directives_type, kElementClass);
    to.indexes = locals.add(kElementI4, kElementSzArray);
    to.counter = locals.add(kElementI4);
    to.goes_on = locals.add(kElementBoolean);
    to.index = locals.add(kElementI4);
    to.is_null = locals.add(kElementBoolean);
    return locals.result();
}

// On the method's first call.
Instruction* emit_registration(IlBuilder& il, const Emission& emission) {
    const InstrumentationReferences& to = emission.references;
    Instruction* const first = il.ldc_i4(emission.index);
    il.call(to.contains_key);
    Instruction* const is_known = il.brtrue_s();

    il.ldc_i4(emission.index);
    il.call(to.get_current_method);
    il.ldc_i4(static_cast<std::uint32_t>(emission.mode));
    il.call(to.register_method);
    il.bind(is_known->target);
    return first;
}

void emit_call(IlBuilder& il, const Emission& emission, const PrologueLocals& locals) {
    const InstrumentationReferences& to = emission.references;
    il.ldc_i4(emission.index);
    il.newobj(to.directives_constructor);
    il.stloc_s(locals.directives);
    EmitReceiver(il, emission.shape);
    EmitArgumentArray(il, emission, locals.array);
    il.ldloc_s(locals.array);
    il.ldloc_s(locals.directives);
    il.call(to.generic_prologue);
}

// Goes on behind it unless the current index is the parameter's and its new value is not null.
void emit_write_back_of(IlBuilder& il, const Emission& emission, const PrologueLocals& locals,
                        std::uint32_t parameter) {
    const PassedValue& value = emission.shape.parameters[parameter];
    il.ldloc_s(locals.index);
    il.ldc_i4_s(parameter);
    Instruction* const is_another = il.bne_un_s();

    il.ldloc_s(locals.array);
    il.ldc_i4_s(parameter);
    il.ldelem_ref();
    il.ldnull();
    il.ceq();
    il.stloc_s(locals.is_null);
    il.ldloc_s(locals.is_null);
    Instruction* const is_null = il.brtrue_s();

    il.ldloc_s(locals.array);
    il.ldc_i4_s(parameter);
    il.ldelem_ref();
    if (value.unboxed_back) {
        il.unbox_any(value.type);
    } else if (value.type != mdTokenNil) {
        il.castclass(value.type);
    }
    il.starg_s(emission.shape.argument_number(parameter));
    il.bind(is_another->target);
    il.bind(is_null->target);
}

void emit_write_back(IlBuilder& il, const Emission& emission, const PrologueLocals& locals) {
    il.ldloc_s(locals.directives);
    il.callvirt(emission.references.get_indexes);
    il.stloc_s(locals.indexes);

    il.ldc_i4_0();
    il.stloc_s(locals.counter);
    Instruction* const to_test = il.br_s();

    Instruction* const loop = il.ldloc_s(locals.indexes);
    il.ldloc_s(locals.counter);
    il.ldelem_i4();
    il.stloc_s(locals.index);
    for (std::uint32_t i = 0; i < emission.shape.parameters.size(); ++i) {
        if (emission.shape.parameters[i].replaceable) {
            emit_write_back_of(il, emission, locals, i);
        }
    }
    il.ldloc_s(locals.counter);
    il.ldc_i4_1();
    il.add();
    il.stloc_s(locals.counter);

    il.bind(to_test->target);
    il.ldloc_s(locals.counter);
    il.ldloc_s(locals.indexes);
    il.ldlen();
    il.conv_i4();
    il.clt();
    il.stloc_s(locals.goes_on);
    il.ldloc_s(locals.goes_on);
    il.brtrue_s(loop);
}

} // namespace

HRESULT EmitPrologue(Emission& emission, Instruction* own_code) {
    PrologueLocals locals;
    mdString text = mdStringNil;
    HRESULT hr = add_locals(emission, locals);
    if (SUCCEEDED(hr)) {
        hr = DefineTraceText(emission, kPrologueFailed, text);
    }
    if (FAILED(hr)) {
        return hr;
    }
    IlBuilder il(emission.body, own_code);
    Instruction* const first = emit_registration(il, emission);
    emit_call(il, emission, locals);
    emit_write_back(il, emission, locals);
    EmitGuard(il, emission, first, text);
    return CheckOperands(emission, il);
}

} // namespace corvane
