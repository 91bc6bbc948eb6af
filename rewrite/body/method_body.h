// The editable model of one method body: a list of instructions whose branches name instructions,
// and exception clauses whose bounds name instructions. body_reader.h fills it, body_writer.h lays
// it out again. Nodes live in an arena that goes with the body; none is ever removed. One thread
// owns a body from reading to writing. A function that takes memory throws std::bad_alloc and
// nothing else.
#pragma once

#include "il/method_format.h"
#include "il/opcode_table.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory_resource>
#include <span>
#include <type_traits>
#include <vector>

namespace corvane {

class LocalSignatures;

// Values of the platform's HRESULT.
enum class [[nodiscard]] BodyResult : std::uint32_t{
    kOk = 0,
    kMalformed = 0x8013153A,
    kFail = 0x80004005,
    kOutOfMemory = 0x8007000E,
};

struct Instruction {
    Instruction* next;
    Instruction* previous;
    union {
        std::uint64_t immediate; // number, token or count of targets, its bytes as they are encoded
        Instruction* target;     // of a branch or an entry of a switch
    };
    std::uint32_t offset; // in the code last laid out
    Opcode opcode;        // one set in place of another leaves the body's maximum stack as it is

    [[nodiscard]] bool is_branch() const {
        return (operand_kind_of(opcode) & operand_kind::kBranchBit) != 0;
    }
};
static_assert(sizeof(Instruction) == 32 && std::is_trivially_destructible_v<Instruction>);

struct ExceptionClause {
    std::uint32_t flags; // ClauseKind
    Instruction* try_first;
    Instruction* try_end; // the first instruction behind the try block
    Instruction* handler_first;
    // The slot of the first instruction behind the handler. An emitter fills it when it gets there.
    Instruction** handler_end;
    union {
        std::uint32_t class_token;
        Instruction* filter_first; // of a filter clause
    };
};

class MethodBody {
public:
    template <typename T>
    class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = T*;
        using reference = T&;

        Iterator() = default;
        explicit Iterator(T* at) : at_(at) {}
        T& operator*() const { return *at_; }
        T* operator->() const { return at_; }
        Iterator& operator++() {
            at_ = at_->next;
            return *this;
        }
        Iterator operator++(int) {
            Iterator before = *this;
            at_ = at_->next;
            return before;
        }
        bool operator==(const Iterator&) const = default;

    private:
        T* at_ = nullptr;
    };

    MethodBody() : sentinel_{&sentinel_, &sentinel_, {}, 0, Opcode::kNop} {}
    MethodBody(const MethodBody&) = delete;
    MethodBody& operator=(const MethodBody&) = delete;

    [[nodiscard]] Iterator<Instruction> begin() { return Iterator(sentinel_.next); }
    [[nodiscard]] Iterator<Instruction> end() { return Iterator(&sentinel_); }
    [[nodiscard]] Iterator<const Instruction> begin() const {
        return Iterator<const Instruction>(sentinel_.next);
    }
    [[nodiscard]] Iterator<const Instruction> end() const { return Iterator(&sentinel_); }

    [[nodiscard]] Instruction* first() { return sentinel_.next; }
    // Stands behind the last instruction; the anchor for appending, and the end of a last region.
    [[nodiscard]] Instruction* sentinel() { return &sentinel_; }
    [[nodiscard]] std::size_t instruction_count() const { return instruction_count_; }

    // Constant time. Counts what the opcode pushes into the maximum stack.
    Instruction* insert_before(Instruction* anchor, Opcode opcode, std::uint64_t immediate = 0);
    Instruction* insert_before(Instruction* anchor, Opcode branch, Instruction* target);

    // A place for the end of a handler that is still to be emitted.
    Instruction** add_slot(Instruction* at = nullptr);
    void AddClause(std::uint32_t flags, Instruction* try_first, Instruction* try_end,
                   Instruction* handler_first, Instruction** handler_end_slot,
                   std::uint32_t class_token);
    // A filter clause.
    void AddClause(Instruction* try_first, Instruction* try_end, Instruction* handler_first,
                   Instruction** handler_end_slot, Instruction* filter_first);

    // Whatever ended with the code so far ends in front of this instruction from now on, so that
    // code can be appended without growing the last regions. Clauses that are to reach further are
    // added afterwards.
    void end_regions_at(Instruction* end);

    // Appends a local to the method's local signature and returns its index. Every failure returns
    // 0, which cannot be told from the index of a first local; local_signature changes on success
    // only. Kinds are value type, class, generic instance (by its TypeSpec) and one-dimensional
    // array.
    std::uint32_t AddLocal(std::uint8_t element_type);
    std::uint32_t AddLocal(std::uint32_t token_or_element_type, std::uint8_t kind);
    // Of any type, given as it stands in a signature.
    std::uint32_t AddLocal(std::span<const std::uint8_t> type);

    LocalSignatures* local_signatures = nullptr; // borrowed; without it no local can be added
    std::uint32_t local_signature = 0;           // token
    std::uint32_t max_stack = 0;         // what was read, and every push since: more than it takes
    std::uint32_t max_stack_as_read = 0; // of the header, what the method's own code takes
    bool init_locals = false;
    bool tiny = false; // asks for a tiny header; reading never does
    std::vector<ExceptionClause> clauses;

private:
    Instruction* link_before(Instruction* anchor, Opcode opcode);

    Instruction sentinel_;
    std::size_t instruction_count_ = 0;
    std::pmr::monotonic_buffer_resource arena_;
};

} // namespace corvane
