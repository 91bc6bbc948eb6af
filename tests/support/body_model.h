// Compares the models of two bodies, and edits one, for tests: a model keeps its meaning when every
// instruction, operand, target and clause of it has its counterpart in the other.
#pragma once

#include "rewrite/body/branch_widening.h"
#include "rewrite/body/method_body.h"

#include <cstdint>
#include <string>
#include <vector>

namespace corvane {

// Inserts so many nops in front of every instruction, so that each gap of the code grows, the front
// and the inside of protected regions included. Returns which positions of the list hold one.
inline std::vector<bool> insert_nops(MethodBody& body, int count) {
    std::vector<bool> inserted;
    for (Instruction& instruction : body) {
        if (instruction.opcode != Opcode::kSwitchTarget) {
            for (int i = 0; i < count; ++i) {
                body.insert_before(&instruction, Opcode::kNop);
                inserted.push_back(true);
            }
        }
        inserted.push_back(false);
    }
    return inserted;
}

namespace detail {

inline std::string number_instructions(MethodBody& body, const std::vector<bool>& ignored,
                                       std::vector<const Instruction*>& counted) {
    std::size_t position = 0;
    for (Instruction& instruction : body) {
        const bool is_ignored = position < ignored.size() && ignored[position];
        if (is_ignored && instruction.opcode != Opcode::kNop) {
            return "no nop at position " + std::to_string(position);
        }
        // Nothing refers to an ignored instruction, which this number makes sure of.
        instruction.offset = is_ignored ? 0xFFFFFFFF : static_cast<std::uint32_t>(counted.size());
        if (!is_ignored) {
            counted.push_back(&instruction);
        }
        ++position;
    }
    body.sentinel()->offset = static_cast<std::uint32_t>(counted.size());
    return {};
}

inline bool same_opcode(Opcode before, Opcode after) {
    return after == before ||
           (operand_kind_of(before) == operand_kind::Br1 && after == long_form(before));
}

} // namespace detail

// Empty if `after` means what `before` means once the ignored positions of `after` are left out;
// otherwise the first difference. A short branch may have become long. Uses the offsets as scratch.
inline std::string difference(MethodBody& before, MethodBody& after,
                              const std::vector<bool>& ignored = {}) {
    std::vector<const Instruction*> old_code;
    std::vector<const Instruction*> new_code;
    std::string problem = detail::number_instructions(before, {}, old_code) +
                          detail::number_instructions(after, ignored, new_code);
    if (!problem.empty()) {
        return problem;
    }
    if (old_code.size() != new_code.size()) {
        return std::to_string(old_code.size()) + " instructions became " +
               std::to_string(new_code.size());
    }
    for (std::size_t i = 0; i < old_code.size(); ++i) {
        const Instruction& old_one = *old_code[i];
        const Instruction& new_one = *new_code[i];
        const bool same = detail::same_opcode(old_one.opcode, new_one.opcode) &&
                          (old_one.is_branch() ? old_one.target->offset == new_one.target->offset
                                               : old_one.immediate == new_one.immediate);
        if (!same) {
            return "instruction " + std::to_string(i);
        }
    }
    if (before.local_signature != after.local_signature) {
        return "local signature";
    }
    if (before.init_locals != after.init_locals) {
        return "init locals";
    }
    if (before.clauses.size() != after.clauses.size()) {
        return "number of clauses";
    }
    for (std::size_t i = 0; i < before.clauses.size(); ++i) {
        const ExceptionClause& a = before.clauses[i];
        const ExceptionClause& b = after.clauses[i];
        const bool same =
            a.flags == b.flags && a.try_first->offset == b.try_first->offset &&
            a.try_end->offset == b.try_end->offset &&
            a.handler_first->offset == b.handler_first->offset &&
            (*a.handler_end)->offset == (*b.handler_end)->offset &&
            (a.flags == kClauseFilter ? a.filter_first->offset == b.filter_first->offset
                                      : a.class_token == b.class_token);
        if (!same) {
            return "clause " + std::to_string(i);
        }
    }
    return {};
}

} // namespace corvane
