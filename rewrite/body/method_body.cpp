// Insertion into the model of a method body. It moves and renumbers no existing node.

#include "rewrite/body/method_body.h"

#include "rewrite/body/local_signature.h"

namespace corvane {

Instruction* MethodBody::link_before(Instruction* anchor, Opcode opcode) {
    auto* const instruction = std::pmr::polymorphic_allocator<>(&arena_).new_object<Instruction>(
        Instruction{anchor, anchor->previous, {}, 0, opcode});
    anchor->previous->next = instruction;
    anchor->previous = instruction;
    ++instruction_count_;
    const auto number = static_cast<std::size_t>(opcode);
    if (number < kOpcodeCount) {
        max_stack += static_cast<std::uint32_t>(OpcodeStackPush[number]);
    }
    return instruction;
}

Instruction* MethodBody::insert_before(Instruction* anchor, Opcode opcode,
                                       std::uint64_t immediate) {
    Instruction* const instruction = link_before(anchor, opcode);
    instruction->immediate = immediate;
    return instruction;
}

Instruction* MethodBody::insert_before(Instruction* anchor, Opcode branch, Instruction* target) {
    Instruction* const instruction = link_before(anchor, branch);
    instruction->target = target;
    return instruction;
}

Instruction** MethodBody::add_slot(Instruction* at) {
    return std::pmr::polymorphic_allocator<>(&arena_).new_object<Instruction*>(at);
}

void MethodBody::AddClause(std::uint32_t flags, Instruction* try_first, Instruction* try_end,
                           Instruction* handler_first, Instruction** handler_end_slot,
                           std::uint32_t class_token) {
    ExceptionClause clause{flags, try_first, try_end, handler_first, handler_end_slot, {}};
    clause.class_token = class_token;
    clauses.push_back(clause);
}

void MethodBody::AddClause(Instruction* try_first, Instruction* try_end, Instruction* handler_first,
                           Instruction** handler_end_slot, Instruction* filter_first) {
    ExceptionClause clause{kClauseFilter, try_first, try_end, handler_first, handler_end_slot, {}};
    clause.filter_first = filter_first;
    clauses.push_back(clause);
}

void MethodBody::end_regions_at(Instruction* end) {
    for (ExceptionClause& clause : clauses) {
        if (clause.try_end == &sentinel_) {
            clause.try_end = end;
        }
        if (*clause.handler_end == &sentinel_) {
            *clause.handler_end = end;
        }
    }
}

// The new signature becomes the body's only when all of it has worked.
std::uint32_t MethodBody::AddLocal(std::span<const std::uint8_t> type) {
    if (local_signatures == nullptr) {
        return 0;
    }
    std::span<const std::uint8_t> old_blob;
    if (local_signature != 0) {
        old_blob = local_signatures->signature(local_signature).value_or(old_blob);
        if (old_blob.empty()) {
            return 0;
        }
    }
    const auto local = append_local(old_blob, type);
    const auto token = local ? local_signatures->token_of(local->blob) : std::nullopt;
    if (!token) {
        return 0;
    }
    local_signature = *token;
    return local->index;
}

std::uint32_t MethodBody::AddLocal(std::uint8_t element_type) {
    return AddLocal(std::span(&element_type, 1));
}

std::uint32_t MethodBody::AddLocal(std::uint32_t token_or_element_type, std::uint8_t kind) {
    if (local_signatures == nullptr) {
        return 0;
    }
    const auto type = encode_local_type(token_or_element_type, kind, *local_signatures);
    return type ? AddLocal(*type) : 0;
}

} // namespace corvane
