#include "rewrite/emit/exception_wrapping.h"

#include "il/element_type.h"
#include "rewrite/emit/trace_texts.h"

namespace corvane {

HRESULT EmitCatchAndThrow(Emission& emission, IlBuilder& il, Instruction* first) {
    const InstrumentationReferences& to = emission.references;
    MethodBody& body = emission.body;
    Locals locals(emission);
    const std::uint32_t exception = locals.add(to.exception_type, kElementClass);
    mdString before = mdStringNil;
    mdString failed = mdStringNil;
    HRESULT hr = locals.result();
    if (SUCCEEDED(hr)) {
        hr = DefineTraceText(emission, kBeforeError, before);
    }
    if (SUCCEEDED(hr)) {
        hr = DefineTraceText(emission, kErrorFailed, failed);
    }
    if (FAILED(hr)) {
        return hr;
    }

    Instruction* const leave_block = il.leave_s();
    body.end_regions_at(leave_block);

    Instruction* const handler = il.stloc_s(exception);
    Instruction* const report = il.ldc_i4(0);
    il.ldstr(before);
    il.call(to.log);
    il.ldnull();
    il.ldloc_s(exception);
    il.call(to.error);
    il.pop();
    Instruction* const leave_report = il.leave_s();

    Instruction* const report_failed = il.pop();
    il.ldc_i4(0);
    il.ldstr(failed);
    il.call(to.log);
    Instruction* const leave_report_failed = il.leave_s();

    Instruction** const report_end = body.add_slot();
    il.bind(*report_end);
    il.bind(leave_report->target);
    il.bind(leave_report_failed->target);
    il.ldloc_s(exception);
    il.throw_();

    Instruction** const handler_end = body.add_slot();
    il.bind(*handler_end);
    il.bind(leave_block->target);
    body.AddClause(kClauseCatch, report, report_failed, report_failed, report_end,
                   to.exception_type);
    body.AddClause(kClauseCatch, first, handler, handler, handler_end, to.exception_type);
    return S_OK;
}

HRESULT EmitFinally(Emission& emission, IlBuilder& il, Instruction* first) {
    constexpr std::uint32_t kDetail = 4;

    MethodBody& body = emission.body;
    mdString text = mdStringNil;
    const HRESULT hr = DefineTraceText(emission, kFinally, text);
    if (FAILED(hr)) {
        return hr;
    }
    Instruction* const leave_block = il.leave_s();

    Instruction* const handler = il.ldc_i4(kDetail);
    il.ldstr(text);
    il.call(emission.references.log);
    il.endfinally();

    Instruction** const handler_end = body.add_slot();
    il.bind(*handler_end);
    il.bind(leave_block->target);
    body.AddClause(kClauseFinally, first, handler, handler, handler_end, 0);
    return S_OK;
}

} // namespace corvane
