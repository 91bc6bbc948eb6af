#include "rewrite/emit/exception_wrapping.h"

#include "il/element_type.h"
#include "rewrite/emit/trace_texts.h"

namespace corvane {

namespace {

// Hands the exception of the local to the managed library. Returns the first instruction.
Instruction* emit_report(const Emission& emission, IlBuilder& il, mdString before,
                         std::uint8_t exception) {
    Instruction* const first = il.ldc_i4(0);
    il.ldstr(before);
    il.call(emission.references.log);
    il.ldnull();
    il.ldloc_s(exception);
    il.call(emission.references.error);
    il.pop();
    return first;
}

} // namespace

HRESULT emit_catch_and_throw(Emission& emission, IlBuilder& il, Instruction* first) {
    const InstrumentationReferences& to = emission.references;
    std::uint8_t exception = 0;
    mdString before = mdStringNil;
    mdString failed = mdStringNil;
    HRESULT hr = add_locals(emission, {{exception, to.exception_type, kElementClass}});
    if (SUCCEEDED(hr)) {
        hr = define_trace_text(emission, kBeforeError, before);
    }
    if (SUCCEEDED(hr)) {
        hr = define_trace_text(emission, kErrorFailed, failed);
    }
    if (FAILED(hr)) {
        return hr;
    }

    const ProtectedBlock own_code = il.begin_handler(first);
    emission.body.end_regions_at(own_code.leave);
    il.stloc_s(exception);

    Instruction* const report = emit_report(emission, il, before, exception);
    const ProtectedBlock reporting = il.begin_handler(report);
    il.pop();
    il.ldc_i4(0);
    il.ldstr(failed);
    il.call(to.log);
    il.leave_handler(reporting, to.exception_type);

    il.ldloc_s(exception);
    il.throw_();
    il.end_handler(own_code, kClauseCatch, to.exception_type);
    return S_OK;
}

HRESULT emit_reporting_filter(Emission& emission, IlBuilder& il, Instruction* first) {
    const InstrumentationReferences& to = emission.references;
    std::uint8_t exception = 0;
    mdString before = mdStringNil;
    HRESULT hr = add_locals(emission, {{exception, to.exception_type, kElementClass}});
    if (SUCCEEDED(hr)) {
        hr = define_trace_text(emission, kBeforeError, before);
    }
    if (FAILED(hr)) {
        return hr;
    }

    const ProtectedBlock own_code = il.begin_handler(first);
    emission.body.end_regions_at(own_code.leave);
    il.isinst(to.exception_type);
    il.stloc_s(exception);
    il.ldloc_s(exception);
    Instruction* const is_another_object = il.brfalse_s();
    emit_report(emission, il, before, exception);
    il.bind(is_another_object->target);
    il.ldc_i4_0();
    il.endfilter();

    Instruction* const never_entered = il.pop();
    il.rethrow();
    il.end_handler(own_code, never_entered);
    return S_OK;
}

HRESULT emit_finally(Emission& emission, IlBuilder& il, Instruction* first) {
    constexpr std::uint32_t kDetail = 4;

    mdString text = mdStringNil;
    const HRESULT hr = define_trace_text(emission, kFinally, text);
    if (FAILED(hr)) {
        return hr;
    }
    const ProtectedBlock block = il.begin_handler(first);
    il.ldc_i4(kDetail);
    il.ldstr(text);
    il.call(emission.references.log);
    il.endfinally();
    il.end_handler(block, kClauseFinally);
    return S_OK;
}

} // namespace corvane
