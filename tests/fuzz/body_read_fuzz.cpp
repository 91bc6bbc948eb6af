// Any bytes as a method body. A body that is accepted is a whole model: its list is linked both
// ways, what branches and clauses name is in it, and the maximum stack is the header's plus all
// pushes. What stands behind a body does not matter.
#include "rewrite/body/body_reader.h"
#include "tests/fuzz/require.h"
#include "tests/support/body_model.h"

#include <cstddef>
#include <cstdint>
#include <set>
#include <vector>

namespace corvane {
namespace {

void check_list(MethodBody& body, std::uint32_t header_max_stack) {
    std::set<const Instruction*> code;
    std::uint32_t pushes = 0;
    const Instruction* previous = body.sentinel();
    for (const Instruction& instruction : body) {
        require(instruction.previous == previous, "the list is linked both ways");
        previous = &instruction;
        const auto number = static_cast<std::uint32_t>(instruction.opcode);
        require(is_code_opcode(number) || instruction.opcode == Opcode::kSwitchTarget,
                "opcodes have known numbers");
        if (instruction.opcode != Opcode::kSwitchTarget) {
            code.insert(&instruction);
            pushes += static_cast<std::uint32_t>(OpcodeStackPush[number]);
        }
    }
    require(body.sentinel()->previous == previous, "the list ends at its sentinel");
    require(body.max_stack == header_max_stack + pushes, "the maximum stack counts pushes");

    for (const Instruction& instruction : body) {
        require(!instruction.is_branch() || code.contains(instruction.target),
                "targets are instructions");
    }
    code.insert(body.sentinel());
    for (const ExceptionClause& clause : body.clauses) {
        require(code.contains(clause.try_first) && code.contains(clause.try_end) &&
                    code.contains(clause.handler_first) && code.contains(*clause.handler_end),
                "regions are bounded by instructions");
        require(clause.flags != kClauseFilter || code.contains(clause.filter_first),
                "filters are instructions");
    }
}

void check(std::span<const std::uint8_t> bytes) {
    MethodBody body;
    const BodyResult result = read_body(bytes, body);
    require(result == BodyResult::kOk || result == BodyResult::kMalformed,
            "a body is read or malformed");

    std::vector<std::uint8_t> longer(bytes.begin(), bytes.end());
    longer.resize(longer.size() + 64, 0xA5);
    MethodBody with_tail;
    const BodyResult longer_result = read_body(longer, with_tail);
    if (result == BodyResult::kOk) {
        ByteReader reader(bytes);
        const auto header = decode_header(reader);
        require(header.has_value(), "a body that is read has a header");
        check_list(body, header->max_stack);
        require(longer_result == BodyResult::kOk && difference(body, with_tail).empty(),
                "what follows the body does not matter");
    }
}

} // namespace
} // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::check({data, size});
    return 0;
}
