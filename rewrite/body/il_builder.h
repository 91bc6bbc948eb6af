// What emitters write IL with: each member function appends one instruction behind the one before,
// all of them in front of an anchor, so that an emitter reads like the code that it emits. Local
// and argument numbers that their one-byte operand cannot hold are not wrapped: in_range() turns
// false. One emitter on one thread uses a builder; the body must outlive it.
#pragma once

#include "rewrite/body/method_body.h"

#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace corvane {

class IlBuilder {
public:
    IlBuilder(MethodBody& body, Instruction* anchor) : body_(body), anchor_(anchor) {}

    // False once an operand did not fit: the method is to be left as it was.
    [[nodiscard]] bool in_range() const { return in_range_; }

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
    Instruction* ldc_i4_s(std::uint32_t value) {
        return emit_byte(Opcode::kLdcI4S, value, std::numeric_limits<std::int8_t>::max());
    }
    Instruction* ldstr(std::uint32_t string) { return emit(Opcode::kLdstr, string); }

    Instruction* ldarg_0() { return emit(Opcode::kLdarg0); }
    Instruction* ldarg_s(std::uint32_t argument) { return emit_byte(Opcode::kLdargS, argument); }
    Instruction* starg_s(std::uint32_t argument) { return emit_byte(Opcode::kStargS, argument); }
    Instruction* ldloc_s(std::uint32_t local) { return emit_byte(Opcode::kLdlocS, local); }
    Instruction* stloc_s(std::uint32_t local) { return emit_byte(Opcode::kStlocS, local); }

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

    Instruction* call(std::uint32_t method) { return emit(Opcode::kCall, method); }
    Instruction* callvirt(std::uint32_t method) { return emit(Opcode::kCallvirt, method); }
    Instruction* newobj(std::uint32_t constructor) { return emit(Opcode::kNewobj, constructor); }

    // A branch without a target is to be bound: bind(branch->target).
    Instruction* br_s(Instruction* target = nullptr) { return emit(Opcode::kBrS, target); }
    Instruction* brtrue_s(Instruction* target = nullptr) { return emit(Opcode::kBrtrueS, target); }
    Instruction* bne_un_s(Instruction* target = nullptr) { return emit(Opcode::kBneUnS, target); }
    Instruction* leave_s(Instruction* target = nullptr) { return emit(Opcode::kLeaveS, target); }

    Instruction* throw_() { return emit(Opcode::kThrow); }
    Instruction* endfinally() { return emit(Opcode::kEndfinally); }

private:
    Instruction* emit(Opcode opcode, std::uint64_t immediate = 0) {
        return arrive(body_.insert_before(anchor_, opcode, immediate));
    }

    Instruction* emit(Opcode opcode, Instruction* target) {
        return arrive(body_.insert_before(anchor_, opcode, target));
    }

    Instruction* emit_byte(Opcode opcode, std::uint32_t value,
                           std::uint32_t limit = std::numeric_limits<std::uint8_t>::max()) {
        in_range_ = in_range_ && value <= limit;
        return emit(opcode, std::uint64_t{value});
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
    bool in_range_ = true;
};

} // namespace corvane
