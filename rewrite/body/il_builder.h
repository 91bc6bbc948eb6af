// The emitters' tool for writing IL. Each member function appends one instruction behind the one
// before, all of them in front of an anchor. So an emitter reads like the code that it emits. A
// number has the type of its encoded form: the caller that counts locals or arguments refuses a
// number that does not fit. One emitter on one thread uses a builder; the body must outlive it.
#pragma once

#include "rewrite/body/method_body.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace corvane {

// A block whose handler is being emitted.
struct ProtectedBlock {
    Instruction* first;
    Instruction* leave; // the last instruction of the block; its handler comes next
};

class IlBuilder {
public:
    IlBuilder(MethodBody& body, Instruction* anchor) : body_(body), anchor_(anchor) {}

    // Makes a block of everything from `first` on, which ends by leaving to what follows its
    // handler. What is emitted next is the handler.
    [[nodiscard]] ProtectedBlock begin_handler(Instruction* first) { return {first, leave_s()}; }

    // The handler ends here, with an instruction that no code runs past.
    void end_handler(const ProtectedBlock& block, ClauseKind kind, std::uint32_t class_token = 0) {
        Instruction* const handler = block.leave->next;
        Instruction** const handler_end = body_.add_slot();
        bind(*handler_end);
        bind(block.leave->target);
        body_.AddClause(kind, block.first, handler, handler, handler_end, class_token);
    }

    // The same where a filter comes first and `handler` behind it.
    void end_handler(const ProtectedBlock& block, Instruction* handler) {
        Instruction* const filter = block.leave->next;
        Instruction** const handler_end = body_.add_slot();
        bind(*handler_end);
        bind(block.leave->target);
        body_.AddClause(block.first, filter, handler, handler_end, filter);
    }

    // The same for a catch handler that goes on where the block does.
    void leave_handler(const ProtectedBlock& block, std::uint32_t class_token) {
        Instruction* const leave = leave_s();
        bind(leave->target);
        end_handler(block, kClauseCatch, class_token);
    }

    // The reference names the instruction that follows here: the next one emitted, or else the
    // anchor. Serves the target of a branch that jumps forward and the slot of a handler's end; it
    // must live until then.
    void bind(Instruction*& reference) {
        reference = anchor_;
        unbound_.push_back(&reference);
    }

    Instruction* nop() { return emit(Opcode::kNop); }
    Instruction* pop() { return emit(Opcode::kPop); }
    Instruction* ret() { return emit(Opcode::kRet); }

    Instruction* ldnull() { return emit(Opcode::kLdnull); }
    Instruction* ldc_i4_0() { return emit(Opcode::kLdcI40); }
    Instruction* ldc_i4_1() { return emit(Opcode::kLdcI41); }
    Instruction* ldc_i4(std::uint32_t value) { return emit(Opcode::kLdcI4, value); }
    Instruction* ldc_i4_s(std::int8_t value) {
        return emit(Opcode::kLdcI4S, static_cast<std::uint8_t>(value));
    }
    Instruction* ldstr(std::uint32_t string) { return emit(Opcode::kLdstr, string); }

    Instruction* ldarg_0() { return emit(Opcode::kLdarg0); }
    Instruction* ldarg_s(std::uint8_t argument) { return emit(Opcode::kLdargS, argument); }
    Instruction* starg_s(std::uint8_t argument) { return emit(Opcode::kStargS, argument); }
    Instruction* ldloc_s(std::uint8_t local) { return emit(Opcode::kLdlocS, local); }
    Instruction* stloc_s(std::uint8_t local) { return emit(Opcode::kStlocS, local); }

    Instruction* add() { return emit(Opcode::kAdd); }
    Instruction* ceq() { return emit(Opcode::kCeq); }
    Instruction* clt() { return emit(Opcode::kClt); }
    Instruction* conv_i4() { return emit(Opcode::kConvI4); }

    Instruction* newarr(std::uint32_t type) { return emit(Opcode::kNewarr, type); }
    Instruction* ldlen() { return emit(Opcode::kLdlen); }
    Instruction* ldelem_i4() { return emit(Opcode::kLdelemI4); }
    Instruction* ldelem_ref() { return emit(Opcode::kLdelemRef); }
    Instruction* stelem_ref() { return emit(Opcode::kStelemRef); }

    Instruction* ldobj(std::uint32_t type) { return emit(Opcode::kLdobj, type); }
    Instruction* box(std::uint32_t type) { return emit(Opcode::kBox, type); }
    Instruction* unbox_any(std::uint32_t type) { return emit(Opcode::kUnboxAny, type); }
    Instruction* castclass(std::uint32_t type) { return emit(Opcode::kCastclass, type); }
    Instruction* isinst(std::uint32_t type) { return emit(Opcode::kIsinst, type); }

    Instruction* call(std::uint32_t method) { return emit(Opcode::kCall, method); }
    Instruction* callvirt(std::uint32_t method) { return emit(Opcode::kCallvirt, method); }
    Instruction* newobj(std::uint32_t constructor) { return emit(Opcode::kNewobj, constructor); }

    // A branch without a target is to be bound: bind(branch->target).
    Instruction* br_s(Instruction* target = nullptr) { return emit(Opcode::kBrS, target); }
    Instruction* brtrue_s(Instruction* target = nullptr) { return emit(Opcode::kBrtrueS, target); }
    Instruction* brfalse_s(Instruction* target = nullptr) {
        return emit(Opcode::kBrfalseS, target);
    }
    Instruction* bne_un_s(Instruction* target = nullptr) { return emit(Opcode::kBneUnS, target); }
    Instruction* blt_s(Instruction* target = nullptr) { return emit(Opcode::kBltS, target); }
    Instruction* leave_s(Instruction* target = nullptr) { return emit(Opcode::kLeaveS, target); }

    Instruction* throw_() { return emit(Opcode::kThrow); }
    Instruction* rethrow() { return emit(Opcode::kRethrow); }
    Instruction* endfinally() { return emit(Opcode::kEndfinally); }
    Instruction* endfilter() { return emit(Opcode::kEndfilter); }

    // Any other instruction.
    Instruction* emit(Opcode opcode, std::uint64_t immediate = 0) {
        return arrive(body_.insert_before(anchor_, opcode, immediate));
    }

private:
    Instruction* emit(Opcode opcode, Instruction* target) {
        return arrive(body_.insert_before(anchor_, opcode, target));
    }

    Instruction* arrive(Instruction* emitted) {
        for (Instruction** const reference : std::exchange(unbound_, {})) {
            *reference = emitted;
        }
        return emitted;
    }

    MethodBody& body_;
    Instruction* anchor_;
    std::vector<Instruction**> unbound_;
};

} // namespace corvane
