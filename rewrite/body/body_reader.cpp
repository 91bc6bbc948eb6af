// Decodes front to back, then resolves: during decoding, branches hold the offsets of their
// targets. When every instruction is known, offsets become instructions.

#include "rewrite/body/body_reader.h"

#include <bit>
#include <cstring>
#include <new>
#include <optional>
#include <vector>

namespace corvane {

namespace {

class BodyReader {
public:
    BodyReader(std::span<const std::uint8_t> bytes, MethodBody& body)
        : body_(body), bytes_(bytes), reader_(bytes) {}

    bool read() { return read_header() && decode_code() && resolve_targets() && read_clauses(); }

private:
    bool read_header() {
        const auto header = decode_header(reader_);
        if (!header) {
            return false;
        }
        header_ = *header;
        body_.max_stack = header_.max_stack;
        body_.max_stack_as_read = header_.max_stack;
        body_.local_signature = header_.local_signature;
        body_.init_locals = (header_.flags & header_flag::kInitLocals) != 0;
        return true;
    }

    bool decode_code() {
        at_offset_.resize(std::size_t{header_.code_size} + 1);
        at_offset_.back() = body_.sentinel();
        const auto code = bytes_.subspan(header_.code_offset(), header_.code_size);
        ByteReader reader(code);
        while (reader.remaining() != 0) {
            if (!decode_instruction(reader)) {
                return false;
            }
        }
        return true;
    }

    bool decode_instruction(ByteReader& reader) {
        const std::size_t offset = reader.position();
        const auto opcode = decode_opcode(reader);
        if (!opcode) {
            return false;
        }
        Instruction* const instruction = body_.insert_before(body_.sentinel(), *opcode);
        at_offset_[offset] = instruction;

        const std::uint8_t kind = operand_kind_of(*opcode);
        if (kind == operand_kind::Switch) {
            return decode_switch(reader, *instruction);
        }
        if (kind == operand_kind::Br1) {
            return decode_target<std::int8_t>(reader, *instruction);
        }
        if (kind == operand_kind::Br4) {
            return decode_target<std::int32_t>(reader, *instruction);
        }
        const std::uint8_t* const operand = reader.cursor();
        const std::size_t size = kind & operand_kind::kSizeMask;
        if (!reader.skip(size)) {
            return false;
        }
        std::memcpy(&instruction->immediate, operand, size);
        return true;
    }

    static std::optional<Opcode> decode_opcode(ByteReader& reader) {
        std::uint32_t page = 0;
        auto byte = reader.read<std::uint8_t>();
        if (byte == kTwoByteEscape) {
            page = kTwoByteOpcodes;
            byte = reader.read<std::uint8_t>();
        }
        if (!byte || !is_code_opcode(page + *byte)) {
            return std::nullopt;
        }
        return static_cast<Opcode>(page + *byte);
    }

    template <typename Delta>
    static bool decode_target(ByteReader& reader, Instruction& branch) {
        const auto delta = reader.read<Delta>();
        if (!delta) {
            return false;
        }
        branch.immediate = reader.position() + static_cast<std::uint64_t>(std::int64_t{*delta});
        return true;
    }

    bool decode_switch(ByteReader& reader, Instruction& instruction) {
        const auto count = reader.read<std::uint32_t>();
        if (!count || *count > reader.remaining() / sizeof(std::int32_t)) {
            return false;
        }
        instruction.immediate = *count;
        const std::uint64_t end = reader.position() + sizeof(std::int32_t) * std::uint64_t{*count};
        for (std::uint32_t i = 0; i < *count; ++i) {
            const std::int64_t delta = *reader.read<std::int32_t>();
            body_.insert_before(body_.sentinel(), Opcode::kSwitchTarget,
                                end + static_cast<std::uint64_t>(delta));
        }
        return true;
    }

    bool resolve_targets() {
        for (Instruction& instruction : body_) {
            if (instruction.is_branch()) {
                Instruction* const target = instruction_at(instruction.immediate);
                if (target == nullptr) {
                    return false;
                }
                instruction.target = target;
            }
        }
        return true;
    }

    bool read_clauses() {
        if (!header_.has_sections()) {
            return true;
        }
        if (!reader_.skip(header_.sections_offset() - reader_.position())) {
            return false;
        }
        const auto section = decode_section(reader_);
        if (!section || !section->is_exception_table() || section->has_successor() ||
            section->data_size < kSectionHeaderSize ||
            section->data_size - kSectionHeaderSize > reader_.remaining()) {
            return false;
        }
        for (std::uint32_t left = section->clause_count(); left != 0; --left) {
            const auto record = decode_clause(reader_, section->is_fat());
            if (!record || !resolve_clause(*record)) {
                return false;
            }
        }
        return true;
    }

    bool resolve_clause(const ClauseRecord& record) {
        Instruction* const try_first = instruction_at(record.try_offset);
        Instruction* const try_end = region_end(record.try_offset, record.try_length);
        Instruction* const handler_first = instruction_at(record.handler_offset);
        Instruction* const handler_end = region_end(record.handler_offset, record.handler_length);
        if (try_first == nullptr || try_end == nullptr || handler_first == nullptr ||
            handler_end == nullptr) {
            return false;
        }
        Instruction** const slot = body_.add_slot(handler_end);
        if (record.flags == kClauseFilter) {
            Instruction* const filter_first = instruction_at(record.token_or_filter);
            body_.AddClause(try_first, try_end, handler_first, slot, filter_first);
            return filter_first != nullptr;
        }
        body_.AddClause(record.flags, try_first, try_end, handler_first, slot,
                        record.token_or_filter);
        return is_clause_kind(record.flags);
    }

    // Null outside the code and between instructions.
    [[nodiscard]] Instruction* instruction_at(std::uint64_t offset) const {
        return offset < header_.code_size ? at_offset_[offset] : nullptr;
    }

    // The same, but a region may also end with the code.
    [[nodiscard]] Instruction* region_end(std::uint32_t offset, std::uint32_t length) const {
        const std::uint64_t end = std::uint64_t{offset} + length;
        return end <= header_.code_size ? at_offset_[end] : nullptr;
    }

    MethodBody& body_;
    std::span<const std::uint8_t> bytes_;
    ByteReader reader_;
    MethodHeader header_;
    std::vector<Instruction*> at_offset_; // one for each byte of code, and the sentinel
};

} // namespace

BodyResult read_body(std::span<const std::uint8_t> bytes, MethodBody& body) {
    static_assert(std::endian::native == std::endian::little, "operands are copied as they stand");
    try {
        return BodyReader(bytes, body).read() ? BodyResult::kOk : BodyResult::kMalformed;
    } catch (const std::bad_alloc&) {
        return BodyResult::kOutOfMemory;
    }
}

} // namespace corvane
