#include "rewrite/emit/emission.h"

#include <string>

namespace corvane {

HRESULT define_trace_text(const Emission& emission, const TraceText& text, mdString& token) {
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

namespace {

// An index alone does not tell whether there is a local: a new signature does.
template <class... Type>
HRESULT add_local(Emission& emission, std::uint8_t& index, Type... type) {
    MethodBody& body = emission.body;
    const std::uint32_t before = body.local_signature;
    const std::uint32_t added = body.AddLocal(type...);
    if (body.local_signature == before) {
        return emission.refusal.refuse(L"a local variable cannot be added to it");
    }
    index = static_cast<std::uint8_t>(added);
    return index == added ? S_OK : emission.refusal.refuse(L"it has too many local variables");
}

// The argument is on the stack. What a reference to a string, class or object refers to is not
// looked at: null goes in its place, which is deliberate.
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

HRESULT add_locals(Emission& emission, std::initializer_list<NewLocal> locals) {
    for (const auto& [index, type, kind] : locals) {
        const HRESULT hr = kind == 0 ? add_local(emission, index, static_cast<std::uint8_t>(type))
                                     : add_local(emission, index, type, kind);
        if (FAILED(hr)) {
            return hr;
        }
    }
    return S_OK;
}

HRESULT add_result_local(Emission& emission, std::uint8_t& index) {
    return add_local(emission, index, emission.shape.result_type);
}

void emit_receiver(const Emission& emission, IlBuilder& il) {
    const MethodShape& shape = emission.shape;
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

void emit_argument_array(const Emission& emission, IlBuilder& il, std::uint8_t array) {
    const MethodShape& shape = emission.shape;
    il.ldc_i4_s(static_cast<std::int8_t>(shape.parameters.size()));
    il.newarr(emission.references.object_type);
    il.stloc_s(array);
    for (std::size_t i = 0; i < shape.parameters.size(); ++i) {
        il.ldloc_s(array);
        il.ldc_i4(static_cast<std::uint32_t>(i));
        il.ldarg_s(shape.argument_number(i));
        emit_as_object(il, shape.parameters[i]);
        il.stelem_ref();
    }
}

Instruction* emit_gate(const Emission& emission, IlBuilder& il) {
    if (!emission.strict) {
        return nullptr;
    }
    Instruction* const first = il.call(emission.references.has_listeners);
    il.brfalse_s();
    return first;
}

void emit_guard(const Emission& emission, IlBuilder& il, Instruction* first, mdString text) {
    if (emission.strict) {
        il.bind(first->next->target); // the gate's
    }
    const ProtectedBlock block = il.begin_handler(first);
    il.ldc_i4(0);
    il.ldstr(text);
    il.call(emission.references.log);
    il.leave_handler(block, emission.references.exception_type);
}

} // namespace corvane
