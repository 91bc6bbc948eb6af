// The new body, from its start to its end:
//
//   prologue                         a block with its guard
//   try {                            with a finally block
//     try {                          with a catch block; strict: with a filter
//       the method's own code        every return stores the result and leaves to the exit
//     } catch { report; throw }      strict: filter { report; no }
//   } finally { log }
//   exit: epilogue                   a block with its guard
//   load the result; ret

#include "rewrite/method_instrumenter.h"

#include "base/hresult_text.h"
#include "base/runtime_state.h"
#include "clr/com_ptr.h"
#include "clr/metadata.h"
#include "rewrite/body/body_writer.h"
#include "rewrite/body/method_rewriter.h"
#include "rewrite/body/module_signatures.h"
#include "rewrite/emit/emission.h"
#include "rewrite/emit/epilogue.h"
#include "rewrite/emit/exception_wrapping.h"
#include "rewrite/emit/prologue.h"
#include "rewrite/references/known_references.h"
#include "rewrite/references/module_references.h"
#include "rewrite/rewrite_settings.h"
#include "selection/method_outcomes.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

namespace corvane {

namespace {

// Kept for the process once the runtime has loaded the module; never released, because nothing says
// when the last compiling thread is done. That it is opened and held is fixed; nothing here needs
// what stands in it.
std::atomic<IMetaDataImport*> mscorlib_metadata = nullptr;

void open_mscorlib_once(ICorProfilerInfo* info) {
    const ModuleID module = mscorlibModuleId;
    if (module == 0 || mscorlib_metadata != nullptr) {
        return;
    }
    ComPtr<IMetaDataImport> opened;
    IMetaDataImport* none = nullptr;
    if (SUCCEEDED(info->GetModuleMetaData(module, ofRead, __uuidof(IMetaDataImport),
                                          opened.put_unknown())) &&
        mscorlib_metadata.compare_exchange_strong(none, opened.get())) {
        opened.get()->AddRef();
    }
}

// The signatures of a module, of which the metadata searches all for each that is new.
class KnownSignatures final : public LocalSignatures {
public:
    KnownSignatures(ModuleID module, LocalSignatures& metadata)
        : module_(module), metadata_(metadata) {}

    std::optional<Blob> signature(std::uint32_t token) override {
        return metadata_.signature(token);
    }
    std::optional<Blob> type_spec(std::uint32_t token) override {
        return metadata_.type_spec(token);
    }
    std::optional<std::uint32_t> token_of(Blob blob) override {
        auto token = known_local_signature(module_, blob);
        if (!token) {
            token = metadata_.token_of(blob);
            if (token) {
                keep_local_signature(module_, blob, *token);
            }
        }
        return token;
    }

private:
    ModuleID module_;
    LocalSignatures& metadata_;
};

// What stands in the code and decides whether and how it can be put into a block.
struct CodeFacts {
    std::vector<Instruction*> returns;
    std::vector<Instruction*> tail_prefixes;
    bool jumps = false; // to another method, out of any block
};

CodeFacts examine(MethodBody& body) {
    CodeFacts facts;
    for (Instruction& instruction : body) {
        if (instruction.opcode == Opcode::kRet) {
            facts.returns.push_back(&instruction);
        } else if (instruction.opcode == Opcode::kTail) {
            facts.tail_prefixes.push_back(&instruction);
        }
        facts.jumps = facts.jumps || instruction.opcode == Opcode::kJmp;
    }
    return facts;
}

// Makes the method end at one return, its last instruction, and emits what comes before that.
HRESULT wrap(Emission& emission, Instruction* first, const std::vector<Instruction*>& returns) {
    MethodBody& body = emission.body;
    std::optional<std::uint8_t> result;
    if (emission.shape.returns_value) {
        const HRESULT hr = add_result_local(emission, result.emplace());
        if (FAILED(hr)) {
            return hr;
        }
    }
    IlBuilder il(body, body.sentinel());
    Instruction* const end_of_code = body.sentinel()->previous;
    if (end_of_code->opcode == Opcode::kRet) {
        end_of_code->opcode = Opcode::kNop;
        if (result) {
            il.stloc_s(*result);
        }
    }

    HRESULT hr = emission.strict ? emit_reporting_filter(emission, il, first->next)
                                 : emit_catch_and_throw(emission, il, first->next);
    if (SUCCEEDED(hr)) {
        hr = emit_finally(emission, il, first);
    }
    Instruction* const exit = il.nop();
    if (SUCCEEDED(hr)) {
        hr = EmitEpilogue(emission, il, result);
    }
    if (result) {
        il.ldloc_s(*result);
    }
    il.ret();

    for (Instruction* const instruction : returns) {
        if (instruction->opcode == Opcode::kNop) {
            continue; // the end of the code, which runs into the exit by itself
        }
        Instruction* leave = instruction;
        if (result) {
            instruction->opcode = Opcode::kStlocS;
            instruction->immediate = *result;
            leave = body.insert_before(instruction->next, Opcode::kLeaveS);
        }
        leave->opcode = Opcode::kLeaveS;
        leave->target = exit;
    }
    return hr;
}

// A tail call ends in a return of its own, which it no longer has. Another prefix stays with the
// call: it changes places with the one that goes.
void drop_prefix(Instruction* tail) {
    while (tail->previous->opcode == Opcode::kConstrained ||
           tail->previous->opcode == Opcode::kReadonly) {
        tail->opcode = tail->previous->opcode;
        tail->immediate = tail->previous->immediate;
        tail = tail->previous;
    }
    tail->opcode = Opcode::kNop;
}

HRESULT instrument(Emission& emission) {
    MethodBody& body = emission.body;
    const CodeFacts facts = examine(body);
    if (facts.returns.empty()) {
        return emission.refusal.refuse(L"it has no ret instruction");
    }
    if (facts.jumps) {
        return emission.refusal.refuse(L"it has a jmp instruction, which no block may hold");
    }
    for (Instruction* const prefix : facts.tail_prefixes) {
        drop_prefix(prefix);
    }

    // Each block begins with an instruction of its own.
    Instruction* const own_code = body.first();
    Instruction* const first = body.insert_before(own_code, Opcode::kNop);
    body.insert_before(own_code, Opcode::kNop);

    IlBuilder prologue(body, first);
    HRESULT hr = EmitPrologue(emission, prologue);
    if (SUCCEEDED(hr)) {
        hr = wrap(emission, first, facts.returns);
    }
    if (SUCCEEDED(hr) &&
        written_max_stack(body) < std::max(body.max_stack_as_read, kInjectedStack)) {
        return emission.refusal.refuse(L"its code pushes too often for the header to say how much "
                                       L"stack it takes");
    }
    return hr;
}

HRESULT rewrite(RewriteContext& context, ICorProfilerInfo* info,
                const InstrumentationReferences& references, InstrumentationMode mode,
                Refusal& refusal) {
    const method_info& method = context.method;
    ComPtr<IMetaDataImport> import;
    ComPtr<IMetaDataEmit> emit;
    HRESULT hr = info->GetModuleMetaData(method.module_id, ofRead | ofWrite,
                                         __uuidof(IMetaDataImport), import.put_unknown());
    if (SUCCEEDED(hr)) {
        hr = import.query(emit);
    }
    if (FAILED(hr)) {
        return hr;
    }
    open_mscorlib_once(info);

    MethodRewriter rewriter(info, method.module_id, method.method_token);
    if (log_is_read()) {
        rewriter.title =
            make_prefix(std::wstring_view(method.assembly_name),
                        std::wstring_view(method.type_name), std::wstring_view(method.method_name));
    }
    ModuleSignatures signatures(import.get(), emit.get());
    KnownSignatures known(method.module_id, signatures);
    GrowingSignature growing(known);
    MethodBody body;
    body.local_signatures = strict_il ? static_cast<LocalSignatures*>(&growing) : &signatures;
    hr = rewriter.Read(body);
    if (FAILED(hr)) {
        return hr;
    }
    if (is_instrumented(body, references)) {
        context.log.log(4, L"is instrumented already");
        return S_OK;
    }

    const std::uint32_t index = take_instrumentation_index();
    if (!references.register_method_binds) {
        return refusal.refuse(
            L"Invokers.RegisterMethod cannot be referred to in a module with so few "
            L"or so many type references; CORVANE_STRICT_IL=1 can");
    }
    MethodShape shape;
    hr = read_method_shape(
        {info, import.get(), emit.get(), method, context.log, references, strict_il}, shape,
        refusal);
    if (FAILED(hr)) {
        return hr;
    }
    Emission emission{method, shape, references, emit.get(), body, index, mode, strict_il, refusal};
    hr = instrument(emission);
    if (SUCCEEDED(hr) && !growing.define(body.local_signature)) {
        return refusal.refuse(L"a local variable cannot be added to it");
    }
    if (SUCCEEDED(hr)) {
        hr = rewriter.Write(body);
    }
    if (SUCCEEDED(hr)) {
        count_instrumented();
        context.log.log(3, L"Instrumented, number %u", index);
    }
    return hr;
}

// True when the method is instrumented, now or since an earlier compilation. What keeps it from
// that is logged, and in the refusal.
bool rewrite_or_report(RewriteContext& context, ICorProfilerInfo* info,
                       const InstrumentationReferences& references, InstrumentationMode mode,
                       Refusal& refusal) {
    const HRESULT hr = rewrite(context, info, references, mode, refusal);
    if (FAILED(hr)) {
        if (refusal.reason().empty()) {
            log_result(context.log, L"Left as it is (%s)", hr);
            refusal.refuse(hresult_text(hr).c_str());
        } else {
            context.log.log(1, L"Left as it is: %s", refusal.reason().c_str());
        }
    }
    return SUCCEEDED(hr);
}

} // namespace

HRESULT RewriteMethod(RewriteContext& context, ICorProfilerInfo* info, const method_info& method,
                      InstrumentationMode mode) {
    if (is_left(method.module_id, method.method_token)) {
        return S_OK;
    }
    try {
        const DefinedReferences defined =
            DefineInstrumentationReferences(context, info, method, strict_il);
        Refusal refusal;
        if (!defined.references) {
            leave_for_good(method.module_id, method.method_token, defined.reason);
        } else if (!rewrite_or_report(context, info, *defined.references, mode, refusal)) {
            leave_for_good(method.module_id, method.method_token, refusal.reason());
        }
        return defined.result;
    } catch (...) {
        leave_for_good(method.module_id, method.method_token, L"there was no memory");
        throw;
    }
}

} // namespace corvane
