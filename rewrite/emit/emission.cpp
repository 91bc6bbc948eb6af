#include "rewrite/emit/emission.h"

#include <string>

namespace corvane {

HRESULT DefineTraceText(const Emission& emission, const TraceText& text, mdString& token) {
    std::wstring whole = text.prefix;
    whole += std::wstring_view(emission.method.type_name);
    whole += L'.';
    whole += std::wstring_view(emission.method.method_name);
    whole += L"::";
    whole += text.label;
    whole += text.suffix;
    return emission.metadata->DefineUserString(whole.c_str(), static_cast<ULONG>(whole.size()),
                                               &token);
}

HRESULT CheckOperands(Emission& emission, const IlBuilder& il) {
    return il.in_range()
               ? S_OK
               : emission.refusal.refuse(L"it has too many parameters or local variables");
}

void EmitReceiver(IlBuilder& il, const MethodShape& shape) {
    if (!shape.has_this) {
        il.ldnull();
        return;
    }
    il.ldarg_0();
    if (shape.boxed_receiver != mdTokenNil) {
        il.ldobj(shape.boxed_receiver);
        il.box(shape.boxed_receiver);
    }
}

namespace {

// The argument is on the stack. What a reference to a string, class or object refers to is not
// looked at: null goes in its place, which is wanted.
void emit_as_object(IlBuilder& il, const PassedValue& value) {
    const bool is_boxed = value.as == PassedValue::As::kBoxed;
    if (is_boxed && value.by_ref) {
        il.ldobj(value.type);
    }
    if (is_boxed) {
        il.box(value.type);
    } else if (value.by_ref || value.as == PassedValue::As::kNothing) {
        il.pop();
        il.ldnull();
    }
}

} // namespace

void EmitArgumentArray(IlBuilder& il, const Emission& emission, std::uint32_t array) {
    const MethodShape& shape = emission.shape;
    const auto count = static_cast<std::uint32_t>(shape.parameters.size());
    il.ldc_i4_s(count);
    il.newarr(emission.references.object_type);
    il.stloc_s(array);
    for (std::uint32_t i = 0; i < count; ++i) {
        il.ldloc_s(array);
        il.ldc_i4(i);
        il.ldarg_s(shape.argument_number(i));
        emit_as_object(il, shape.parameters[i]);
        il.stelem_ref();
    }
}

void EmitGuard(IlBuilder& il, Emission& emission, Instruction* first, mdString text) {
    MethodBody& body = emission.body;
    Instruction* const leave_block = il.leave_s();

    Instruction* const handler = il.ldc_i4(0);
    il.ldstr(text);
    il.call(emission.references.log);
    Instruction* const leave_handler = il.leave_s();

    Instruction** const handler_end = body.add_slot();
    il.bind(*handler_end);
    il.bind(leave_block->target);
    il.bind(leave_handler->target);
    body.AddClause(kClauseCatch, first, handler, handler, handler_end,
                   emission.references.exception_type);
}

} // namespace corvane
