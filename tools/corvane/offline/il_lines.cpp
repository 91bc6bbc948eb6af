#include "tools/corvane/offline/il_lines.h"

#include "rewrite/body/body_reader.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <string_view>
#include <utility>

namespace corvane::tool {

namespace {

using Bytes = std::span<const std::uint8_t>;

std::string label_of(const Instruction& instruction) {
    char text[16];
    static_cast<void>(std::snprintf(text, sizeof text, "IL_%04x", instruction.offset));
    return text;
}

// The reader resolves offsets; these are the same ones again.
void number(MethodBody& body) {
    std::uint32_t offset = 0;
    for (Instruction& instruction : body) {
        instruction.offset = offset;
        const bool is_target = instruction.opcode == Opcode::kSwitchTarget;
        const auto index = static_cast<std::size_t>(instruction.opcode);
        offset += is_target ? 4 : OpcodeTable[index].length + OpcodeTable[index].operandSize;
    }
    body.sentinel()->offset = offset;
}

// --- Operands

enum class OperandKind { kNumber, kUnsigned, kToken, kFloat32, kFloat64 };

OperandKind kind_of(Opcode opcode) {
    switch (opcode) {
#define CORVANE_TOKEN(name) case Opcode::k##name:
        CORVANE_TOKEN(Jmp)
        CORVANE_TOKEN(Call)
        CORVANE_TOKEN(Calli)
        CORVANE_TOKEN(Callvirt)
        CORVANE_TOKEN(Cpobj)
        CORVANE_TOKEN(Ldobj)
        CORVANE_TOKEN(Ldstr)
        CORVANE_TOKEN(Newobj)
        CORVANE_TOKEN(Castclass)
        CORVANE_TOKEN(Isinst)
        CORVANE_TOKEN(Unbox)
        CORVANE_TOKEN(Ldfld)
        CORVANE_TOKEN(Ldflda)
        CORVANE_TOKEN(Stfld)
        CORVANE_TOKEN(Ldsfld)
        CORVANE_TOKEN(Ldsflda)
        CORVANE_TOKEN(Stsfld)
        CORVANE_TOKEN(Stobj)
        CORVANE_TOKEN(Box)
        CORVANE_TOKEN(Newarr)
        CORVANE_TOKEN(Ldelema)
        CORVANE_TOKEN(Ldelem)
        CORVANE_TOKEN(Stelem)
        CORVANE_TOKEN(UnboxAny)
        CORVANE_TOKEN(Refanyval)
        CORVANE_TOKEN(Mkrefany)
        CORVANE_TOKEN(Ldtoken)
        CORVANE_TOKEN(Ldftn)
        CORVANE_TOKEN(Ldvirtftn)
        CORVANE_TOKEN(Initobj)
        CORVANE_TOKEN(Constrained)
        CORVANE_TOKEN(Sizeof)
#undef CORVANE_TOKEN
        return OperandKind::kToken;
    case Opcode::kLdcR4:
        return OperandKind::kFloat32;
    case Opcode::kLdcR8:
        return OperandKind::kFloat64;
    case Opcode::kLdcI4S:
    case Opcode::kLdcI4:
    case Opcode::kLdcI8:
        return OperandKind::kNumber;
    default:
        return OperandKind::kUnsigned;
    }
}

std::string float_text(double value) {
    char text[40];
    static_cast<void>(std::snprintf(text, sizeof text, "%.17g", value));
    return text;
}

std::string number_text(std::uint64_t immediate, std::uint8_t size) {
    const unsigned unused = 64 - 8 * size;
    return std::to_string(static_cast<std::int64_t>(immediate << unused) >> unused);
}

std::string operand_text(const Instruction& instruction, MetadataNames& names) {
    const std::uint8_t size = operand_kind_of(instruction.opcode) & operand_kind::kSizeMask;
    if (size == 0) {
        return {};
    }
    switch (kind_of(instruction.opcode)) {
    case OperandKind::kToken:
        return names.token(static_cast<mdToken>(instruction.immediate));
    case OperandKind::kFloat32:
        return float_text(static_cast<double>(
            std::bit_cast<float>(static_cast<std::uint32_t>(instruction.immediate))));
    case OperandKind::kFloat64:
        return float_text(std::bit_cast<double>(instruction.immediate));
    case OperandKind::kNumber:
        return number_text(instruction.immediate, size);
    case OperandKind::kUnsigned:
        return std::to_string(instruction.immediate);
    }
    return {};
}

// The long form of a branch means what the short one does, and so does an operand in the opcode.
std::string meaning_of(std::string_view opcode, const std::string& operand) {
    std::string name(opcode);
    if (name.ends_with(".s")) {
        name.resize(name.size() - 2);
    }
    return name + ' ' + operand;
}

// --- Blocks

struct Block {
    std::uint32_t first;
    std::uint32_t end;
    std::string heading;
};

// Those around others first.
std::vector<Block> blocks_of(const MethodBody& body, MetadataNames& names) {
    std::vector<Block> blocks;
    const ExceptionClause* previous = nullptr;
    // The clauses of inner blocks come first in a body.
    for (const ExceptionClause& clause : body.clauses) {
        const std::uint32_t handler = clause.handler_first->offset;
        const std::uint32_t handler_end = (*clause.handler_end)->offset;
        if (previous == nullptr || previous->try_first != clause.try_first ||
            previous->try_end != clause.try_end) {
            blocks.push_back({clause.try_first->offset, clause.try_end->offset, ".try {"});
        }
        previous = &clause;
        switch (clause.flags) {
        case kClauseCatch:
            blocks.push_back(
                {handler, handler_end, "catch " + names.token(clause.class_token) + " {"});
            break;
        case kClauseFilter:
            blocks.push_back({clause.filter_first->offset, handler, "filter {"});
            blocks.push_back({handler, handler_end, "handler {"});
            break;
        case kClauseFinally:
            blocks.push_back({handler, handler_end, "finally {"});
            break;
        default:
            blocks.push_back({handler, handler_end, "fault {"});
        }
    }
    std::ranges::reverse(blocks);
    std::ranges::stable_sort(blocks, [](const Block& left, const Block& right) {
        return left.first != right.first ? left.first < right.first : left.end > right.end;
    });
    return blocks;
}

class Writer {
public:
    Writer(MethodBody& body, MetadataNames& names)
        : body_(body), names_(names), blocks_(blocks_of(body, names)) {}

    std::vector<IlLine> write() {
        write_header();
        for (const Instruction* at = body_.first(); at != body_.sentinel(); at = write(at)) {
        }
        close_until(~0U);
        return std::move(lines_);
    }

private:
    void write_line(const std::string& text, const std::string& of_block = {}) {
        const auto depth = static_cast<unsigned>(open_.size());
        lines_.push_back({depth, {}, text, text + of_block});
    }

    void write_header() {
        write_line(".maxstack " + std::to_string(body_.max_stack_as_read));
        if (body_.local_signature == 0) {
            return;
        }
        const std::vector<std::string> locals = names_.locals(body_.local_signature);
        write_line(body_.init_locals ? ".locals init" : ".locals");
        for (std::size_t i = 0; i < locals.size(); ++i) {
            write_line("  [" + std::to_string(i) + "] " + locals[i]);
        }
    }

    // Blocks that cross each other end where the outer one ends.
    void close_until(std::uint32_t offset) {
        while (std::ranges::any_of(open_,
                                   [offset](const Block* block) { return block->end <= offset; })) {
            const std::string& heading = open_.back()->heading;
            open_.pop_back();
            write_line("}", heading);
        }
    }

    const Instruction* write(const Instruction* at) {
        close_until(at->offset);
        for (; next_ < blocks_.size() && blocks_[next_].first <= at->offset; ++next_) {
            if (blocks_[next_].end > at->offset) {
                write_line(blocks_[next_].heading);
                open_.push_back(&blocks_[next_]);
            }
        }
        const char* const opcode = OpcodeTable[static_cast<std::size_t>(at->opcode)].name;
        const auto depth = static_cast<unsigned>(open_.size());
        const std::string label = label_of(*at);
        if (at->opcode == Opcode::kSwitch) {
            std::string targets;
            const Instruction* target = at->next;
            for (; target->opcode == Opcode::kSwitchTarget; target = target->next) {
                targets += (targets.empty() ? "" : ", ") + label_of(*target->target);
            }
            lines_.push_back({depth, label, "switch (" + targets + ')', "switch"});
            return target;
        }
        const bool is_branch = at->is_branch();
        const std::string operand = is_branch ? label_of(*at->target) : operand_text(*at, names_);
        lines_.push_back({depth, label, operand.empty() ? opcode : opcode + (' ' + operand),
                          meaning_of(opcode, is_branch ? "" : operand)});
        return at->next;
    }

    MethodBody& body_;
    MetadataNames& names_;
    std::vector<Block> blocks_;
    std::size_t next_ = 0; // of the blocks
    std::vector<const Block*> open_;
    std::vector<IlLine> lines_;
};

// --- Alignment

// Which lines stay, by the greedy search for the fewest edits: how far along each diagonal so many
// edits reach.
std::vector<LinePair> same_lines(const std::vector<IlLine>& before,
                                 const std::vector<IlLine>& after) {
    const auto rows = static_cast<std::ptrdiff_t>(before.size());
    const auto columns = static_cast<std::ptrdiff_t>(after.size());
    // Two bodies of one method differ by what is injected. More than that is not compared.
    constexpr std::ptrdiff_t kMostEdits = 3'000;
    const std::ptrdiff_t most = std::min(rows + columns, kMostEdits);
    std::vector<std::vector<std::ptrdiff_t>> reached;
    std::vector<std::ptrdiff_t> furthest(static_cast<std::size_t>(2 * most + 3));
    const auto place = [&](std::ptrdiff_t diagonal) -> std::ptrdiff_t& {
        return furthest[static_cast<std::size_t>(diagonal + most + 1)];
    };
    const auto is_same = [&](std::ptrdiff_t x, std::ptrdiff_t y) {
        return before[static_cast<std::size_t>(x)].meaning ==
               after[static_cast<std::size_t>(y)].meaning;
    };
    // Kept for the way back: the places on the diagonals -d, -d + 2, ... d.
    std::ptrdiff_t edits = 0;
    for (bool is_done = false; !is_done && edits <= most; edits += is_done ? 0 : 1) {
        std::vector<std::ptrdiff_t>& row = reached.emplace_back();
        for (std::ptrdiff_t k = -edits; k <= edits && !is_done; k += 2) {
            const bool down = k == -edits || (k != edits && place(k - 1) < place(k + 1));
            std::ptrdiff_t x = down ? place(k + 1) : place(k - 1) + 1;
            while (x < rows && x - k >= 0 && x - k < columns && is_same(x, x - k)) {
                ++x;
            }
            place(k) = x;
            row.push_back(x);
            is_done = x >= rows && x - k >= columns;
        }
    }
    std::vector<LinePair> same;
    if (edits > most) {
        return same;
    }
    std::ptrdiff_t x = rows;
    std::ptrdiff_t y = columns;
    for (std::ptrdiff_t d = edits; d >= 0; --d) {
        const auto at = [&](std::ptrdiff_t k) {
            return reached[static_cast<std::size_t>(d - 1)]
                          [static_cast<std::size_t>((k + d - 1) / 2)];
        };
        const std::ptrdiff_t k = x - y;
        std::ptrdiff_t from_x = 0;
        std::ptrdiff_t from_k = 0;
        if (d > 0) {
            const bool down = k == -d || (k != d && at(k - 1) < at(k + 1));
            from_k = down ? k + 1 : k - 1;
            from_x = at(from_k);
        }
        const std::ptrdiff_t start = d == 0 ? 0 : (from_k == k + 1 ? from_x : from_x + 1);
        for (; x > start; --x, --y) {
            same.push_back({static_cast<std::size_t>(x - 1), static_cast<std::size_t>(y - 1)});
        }
        x = from_x;
        y = from_x - from_k;
    }
    std::ranges::reverse(same);
    return same;
}

// Of several lines that a line may be, the last one before the next: injected code stands in front
// of the method's own.
void move_down(std::vector<LinePair>& same, const std::vector<IlLine>& before,
               const std::vector<IlLine>& after) {
    for (std::size_t i = same.size(); i-- > 1;) {
        const std::size_t last = *same[i].after - 1;
        LinePair& pair = same[i - 1];
        if (*pair.before + 1 == *same[i].before &&
            before[*pair.before].meaning == after[last].meaning) {
            pair.after = last;
        }
    }
}

} // namespace

std::optional<std::vector<IlLine>> il_lines(Bytes bytes, MetadataNames& names) {
    MethodBody body;
    if (read_body(bytes, body) != BodyResult::kOk) {
        return std::nullopt;
    }
    number(body);
    return Writer(body, names).write();
}

std::vector<LinePair> align(const std::vector<IlLine>& before, const std::vector<IlLine>& after) {
    std::vector<LinePair> pairs;
    std::size_t x = 0;
    std::size_t y = 0;
    const auto pass_until = [&](std::size_t end_x, std::size_t end_y) {
        while (x < end_x || y < end_y) {
            pairs.push_back({x < end_x ? std::optional(x++) : std::nullopt,
                             y < end_y ? std::optional(y++) : std::nullopt});
        }
    };
    std::vector<LinePair> same = same_lines(before, after);
    move_down(same, before, after);
    for (const LinePair& pair : same) {
        pass_until(*pair.before, *pair.after);
        pairs.push_back({x++, y++});
    }
    pass_until(before.size(), after.size());
    return pairs;
}

} // namespace corvane::tool
