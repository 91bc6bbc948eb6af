#include "rewrite/emit/prologue.h"

#include "il/element_type.h"
#include "rewrite/emit/trace_texts.h"

#include <algorithm>
#include <array>

namespace corvane {

namespace {

struct PrologueLocals {
    std::uint8_t array = 0;
    std::uint8_t directives = 0;
    std::uint8_t indexes = 0; // int32[], of the arguments that were replaced
    std::uint8_t counter = 0; // int32, over those
    std::uint8_t goes_on = 0; // bool, the loop's condition
    std::uint8_t index = 0;   // int32, the current one
    std::uint8_t is_null = 0; // bool, its value is
};

HRESULT add_prologue_locals(Emission& emission, PrologueLocals& to) {
    return add_locals(emission,
                      {{to.array, kElementObject, kElementSzArray},
                       {to.directives, emission.references.directives_type, kElementClass},
                       {to.indexes, kElementI4, kElementSzArray},
                       {to.counter, kElementI4},
                       {to.goes_on, kElementBoolean},
                       {to.index, kElementI4},
                       {to.is_null, kElementBoolean}});
}

bool is_replaceable(const PassedValue& value) {
    return value.replaceable;
}

// Strict: only what the method needs.
HRESULT add_strict_locals(Emission& emission, PrologueLocals& to) {
    const HRESULT hr =
        add_locals(emission, {{to.array, kElementObject, kElementSzArray},
                              {to.directives, emission.references.directives_type, kElementClass}});
    return SUCCEEDED(hr) && std::ranges::any_of(emission.shape.parameters, is_replaceable)
               ? add_locals(emission, {{to.indexes, kElementI4, kElementSzArray}})
               : hr;
}

struct Step {
    Opcode opcode;
    std::uint32_t operand = 0;
};

// What the code begins with, behind the gate: on its first call the method is registered. The
// branch goes behind that.
std::array<Step, 7> registration(const InstrumentationReferences& to, std::uint32_t index,
                                 InstrumentationMode mode) {
    return {{{Opcode::kLdcI4, index},
             {Opcode::kCall, to.contains_key},
             {Opcode::kBrtrueS},
             {Opcode::kLdcI4, index},
             {Opcode::kCall, to.get_current_method},
             {Opcode::kLdcI4, static_cast<std::uint32_t>(mode)},
             {Opcode::kCall, to.register_method}}};
}

Instruction* emit_registration(const Emission& emission, IlBuilder& il) {
    Instruction* first = nullptr;
    Instruction* is_known = nullptr;
    for (const auto& [opcode, operand] :
         registration(emission.references, emission.index, emission.mode)) {
        Instruction* const emitted = il.emit(opcode, operand);
        first = first == nullptr ? emitted : first;
        is_known = opcode == Opcode::kBrtrueS ? emitted : is_known;
    }
    il.bind(is_known->target);
    return first;
}

void emit_call(const Emission& emission, IlBuilder& il, const PrologueLocals& locals) {
    const InstrumentationReferences& to = emission.references;
    il.ldc_i4(emission.index);
    il.newobj(to.directives_constructor);
    il.stloc_s(locals.directives);
    emit_receiver(emission, il);
    emit_argument_array(emission, il, locals.array);
    il.ldloc_s(locals.array);
    il.ldloc_s(locals.directives);
    il.call(to.generic_prologue);
}

// Leaves the new value on the stack.
void emit_new_value(IlBuilder& il, const PrologueLocals& locals, std::size_t parameter) {
    il.ldloc_s(locals.array);
    il.ldc_i4_s(static_cast<std::int8_t>(parameter));
    il.ldelem_ref();
}

void emit_store(const Emission& emission, IlBuilder& il, const PrologueLocals& locals,
                std::size_t parameter) {
    const PassedValue& value = emission.shape.parameters[parameter];
    emit_new_value(il, locals, parameter);
    if (value.unboxed_back) {
        il.unbox_any(value.type);
    } else if (value.type != mdTokenNil) {
        il.castclass(value.type);
    }
    il.starg_s(emission.shape.argument_number(parameter));
}

// Goes on behind it unless the current index is the parameter's and its new value is not null.
void emit_write_back_of(const Emission& emission, IlBuilder& il, const PrologueLocals& locals,
                        std::size_t parameter) {
    const auto number = static_cast<std::int8_t>(parameter);
    il.ldloc_s(locals.index);
    il.ldc_i4_s(number);
    Instruction* const is_another = il.bne_un_s();

    emit_new_value(il, locals, parameter);
    il.ldnull();
    il.ceq();
    il.stloc_s(locals.is_null);
    il.ldloc_s(locals.is_null);
    Instruction* const is_null = il.brtrue_s();

    emit_store(emission, il, locals, parameter);
    il.bind(is_another->target);
    il.bind(is_null->target);
}

void emit_write_back(const Emission& emission, IlBuilder& il, const PrologueLocals& locals) {
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
    for (std::size_t i = 0; i < emission.shape.parameters.size(); ++i) {
        if (emission.shape.parameters[i].replaceable) {
            emit_write_back_of(emission, il, locals, i);
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

// Without a loop: the runtime counts the branches of a method that has one from its first call on,
// and such code is slow. Where nothing was replaced, it is one branch.
void emit_strict_write_back(const Emission& emission, IlBuilder& il, const PrologueLocals& locals) {
    const InstrumentationReferences& to = emission.references;
    const std::vector<PassedValue>& parameters = emission.shape.parameters;
    il.ldloc_s(locals.directives);
    il.callvirt(to.get_indexes);
    if (std::ranges::none_of(parameters, is_replaceable)) {
        il.ldlen(); // fails as the loop does if there is no array
        il.pop();
        return;
    }
    il.stloc_s(locals.indexes);
    il.ldloc_s(locals.indexes);
    il.ldlen();
    Instruction* const nothing_is_replaced = il.brfalse_s();
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        if (!parameters[i].replaceable) {
            continue;
        }
        il.ldloc_s(locals.indexes);
        il.ldc_i4_s(static_cast<std::int8_t>(i));
        il.call(to.index_of);
        il.ldc_i4_0();
        Instruction* const is_not_listed = il.blt_s();
        emit_new_value(il, locals, i);
        Instruction* const is_null = il.brfalse_s();
        emit_store(emission, il, locals, i);
        il.bind(is_not_listed->target);
        il.bind(is_null->target);
    }
    il.bind(nothing_is_replaced->target);
}

} // namespace

HRESULT EmitPrologue(Emission& emission, IlBuilder& il) {
    PrologueLocals locals;
    mdString text = mdStringNil;
    HRESULT hr = emission.strict ? add_strict_locals(emission, locals)
                                 : add_prologue_locals(emission, locals);
    if (SUCCEEDED(hr)) {
        hr = define_trace_text(emission, kPrologueFailed, text);
    }
    if (FAILED(hr)) {
        return hr;
    }
    Instruction* const gate = emit_gate(emission, il);
    Instruction* const registration = emit_registration(emission, il);
    emit_call(emission, il, locals);
    if (emission.strict) {
        emit_strict_write_back(emission, il, locals);
    } else {
        emit_write_back(emission, il, locals);
    }
    emit_guard(emission, il, gate != nullptr ? gate : registration, text);
    return S_OK;
}

bool is_instrumented(const MethodBody& body, const InstrumentationReferences& references) {
    auto instruction = body.begin();
    if (instruction != body.end() && instruction->opcode == Opcode::kCall &&
        instruction->immediate == references.has_listeners) {
        std::advance(instruction, 2); // the gate
    }
    return std::ranges::all_of(registration(references, {}, {}), [&](const Step& expected) {
        if (instruction == body.end()) {
            return false;
        }
        const Instruction& found = *instruction++;
        return found.opcode == expected.opcode &&
               (expected.opcode != Opcode::kCall || found.immediate == expected.operand);
    });
}

} // namespace corvane
