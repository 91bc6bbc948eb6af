// Computes the layout, then encodes: offsets and branch forms are settled before the first byte is
// written. So the size of everything is known, and encoding cannot fail.

#include "rewrite/body/body_writer.h"

#include "rewrite/body/branch_widening.h"

#include <algorithm>
#include <limits>
#include <new>

namespace corvane {

namespace {

// Within it every distance fits the four bytes of a branch.
constexpr std::uint64_t kMaxCodeSize = std::numeric_limits<std::int32_t>::max();

std::uint32_t opcode_size(Opcode opcode) {
    const auto number = static_cast<std::size_t>(opcode);
    return number >= kOpcodeCount ? 0 : number >= kTwoByteOpcodes ? 2 : 1;
}

std::uint32_t encoded_size(Opcode opcode) {
    const std::uint8_t kind = operand_kind_of(opcode);
    const std::uint32_t operand_size = kind == operand_kind::Switch
                                           ? std::uint32_t{sizeof(std::uint32_t)}
                                           : kind & operand_kind::kSizeMask;
    return opcode_size(opcode) + operand_size;
}

class BodyWriter {
public:
    explicit BodyWriter(MethodBody& body) : body_(body) {}

    BodyResult lay_out() {
        if (!targets_are_valid() || !clauses_are_valid() || !assign_offsets()) {
            return BodyResult::kMalformed;
        }
        if (widen_branches(body_) && !assign_offsets()) {
            return BodyResult::kMalformed;
        }
        // Regions may have been emitted in any order, but each must end behind its beginning.
        for (const ExceptionClause& clause : body_.clauses) {
            if (clause.try_end->offset < clause.try_first->offset ||
                (*clause.handler_end)->offset < clause.handler_first->offset) {
                return BodyResult::kMalformed;
            }
        }
        return body_.tiny && !fits_tiny_header() ? BodyResult::kFail : BodyResult::kOk;
    }

    [[nodiscard]] std::vector<std::uint8_t> encode() {
        std::vector<std::uint8_t> bytes;
        bytes.reserve(encoded_body_size());
        ByteWriter writer(bytes);
        write_header(writer);
        encode_code(writer);
        write_clauses(writer);
        return bytes;
    }

private:
    // What a branch or a region may begin with.
    bool is_position(const Instruction* instruction) {
        return instruction != nullptr && instruction != body_.sentinel() &&
               instruction->opcode != Opcode::kSwitchTarget;
    }

    // What a region may end in front of.
    bool is_end(const Instruction* instruction) {
        return instruction == body_.sentinel() || is_position(instruction);
    }

    bool targets_are_valid() {
        std::uint64_t switch_targets = 0; // still to come
        for (const Instruction& instruction : body_) {
            const bool is_switch_target = instruction.opcode == Opcode::kSwitchTarget;
            if (is_switch_target != (switch_targets != 0)) {
                return false;
            }
            if (is_switch_target) {
                --switch_targets;
            } else if (!is_code_opcode(static_cast<std::uint32_t>(instruction.opcode))) {
                return false;
            }
            if (instruction.opcode == Opcode::kSwitch) {
                switch_targets = instruction.immediate;
            }
            if (instruction.is_branch() && !is_position(instruction.target)) {
                return false;
            }
        }
        return switch_targets == 0;
    }

    bool clauses_are_valid() {
        if (body_.clauses.size() > kMaxClauses) {
            return false;
        }
        return std::all_of(
            body_.clauses.begin(), body_.clauses.end(), [this](const ExceptionClause& clause) {
                return is_clause_kind(clause.flags) && is_position(clause.try_first) &&
                       is_end(clause.try_end) && is_position(clause.handler_first) &&
                       clause.handler_end != nullptr && is_end(*clause.handler_end) &&
                       (clause.flags != kClauseFilter || is_position(clause.filter_first));
            });
    }

    bool assign_offsets() {
        std::uint64_t offset = 0;
        for (Instruction& instruction : body_) {
            instruction.offset = static_cast<std::uint32_t>(offset);
            offset += encoded_size(instruction.opcode);
            if (offset > kMaxCodeSize) {
                return false;
            }
        }
        body_.sentinel()->offset = static_cast<std::uint32_t>(offset);
        return true;
    }

    bool fits_tiny_header() {
        return code_size() < kTinyCodeLimit && body_.local_signature == 0 && !body_.init_locals &&
               body_.clauses.empty();
    }

    std::uint32_t code_size() { return body_.sentinel()->offset; }

    std::size_t encoded_body_size() {
        const std::size_t section_size =
            body_.clauses.empty() ? 0 : kSectionHeaderSize + kFatClauseSize * body_.clauses.size();
        return std::size_t{kFatHeaderSize} + code_size() + kSectionAlignment + section_size;
    }

    void write_header(ByteWriter& writer) {
        MethodHeader header;
        header.tiny = body_.tiny;
        header.flags =
            static_cast<std::uint16_t>((body_.init_locals ? header_flag::kInitLocals : 0) |
                                       (body_.clauses.empty() ? 0 : header_flag::kMoreSects));
        header.max_stack = written_max_stack(body_);
        header.code_size = code_size();
        header.local_signature = body_.local_signature;
        encode_header(writer, header);
    }

    void encode_code(ByteWriter& writer) {
        std::int64_t switch_end = 0;
        for (const Instruction& instruction : body_) {
            encode_opcode(writer, instruction.opcode);
            const std::uint8_t kind = operand_kind_of(instruction.opcode);
            if (kind == operand_kind::Switch) {
                switch_end =
                    std::int64_t{instruction.offset} + encoded_size(instruction.opcode) +
                    static_cast<std::int64_t>(sizeof(std::int32_t) * instruction.immediate);
                writer.write(static_cast<std::uint32_t>(instruction.immediate));
            } else if (instruction.is_branch()) {
                const std::int64_t origin =
                    instruction.opcode == Opcode::kSwitchTarget
                        ? switch_end
                        : std::int64_t{instruction.offset} + encoded_size(instruction.opcode);
                const std::int64_t delta = instruction.target->offset - origin;
                writer.write_low_bytes(static_cast<std::uint64_t>(delta),
                                       kind & operand_kind::kSizeMask);
            } else {
                writer.write_low_bytes(instruction.immediate, kind & operand_kind::kSizeMask);
            }
        }
    }

    static void encode_opcode(ByteWriter& writer, Opcode opcode) {
        const std::uint32_t size = opcode_size(opcode);
        if (size == 2) {
            writer.write(kTwoByteEscape);
        }
        if (size != 0) {
            writer.write(static_cast<std::uint8_t>(opcode));
        }
    }

    void write_clauses(ByteWriter& writer) {
        if (body_.tiny) {
            return;
        }
        writer.align(kSectionAlignment);
        if (body_.clauses.empty()) {
            return;
        }
        encode_section(writer, static_cast<std::uint32_t>(body_.clauses.size()));
        for (const ExceptionClause& clause : body_.clauses) {
            const std::uint32_t try_offset = clause.try_first->offset;
            const std::uint32_t handler_offset = clause.handler_first->offset;
            encode_clause(writer, {clause.flags, try_offset, clause.try_end->offset - try_offset,
                                   handler_offset, (*clause.handler_end)->offset - handler_offset,
                                   clause.flags == kClauseFilter ? clause.filter_first->offset
                                                                 : clause.class_token});
        }
    }

    MethodBody& body_;
};

} // namespace

std::uint16_t written_max_stack(const MethodBody& body) {
    constexpr std::uint32_t kLeast = 6;
    return static_cast<std::uint16_t>(std::max(body.max_stack, kLeast));
}

BodyResult write_body(MethodBody& body, std::vector<std::uint8_t>& bytes) {
    try {
        BodyWriter writer(body);
        const BodyResult result = writer.lay_out();
        if (result == BodyResult::kOk) {
            bytes = writer.encode();
        }
        return result;
    } catch (const std::bad_alloc&) {
        return BodyResult::kOutOfMemory;
    }
}

} // namespace corvane
