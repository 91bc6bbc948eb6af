// The body reader and writer over every method body of every assembly of a real runtime: read,
// edited or not, written, read again. What the reader makes of a body is also compared with what
// Mono.Cecil makes of it. Bodies and Cecil's reading are listed by tests/tools/il_reader.cs at
// build time.
#include "rewrite/body/body_reader.h"
#include "rewrite/body/body_writer.h"
#include "tests/support/body_corpus.h"
#include "tests/support/body_model.h"
#include "tests/support/fixtures.h"

#include <gtest/gtest.h>

#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace corvane {
namespace {

using Bytes = std::vector<std::uint8_t>;

const BodyCorpus& corpus() {
    static const BodyCorpus bodies(CORVANE_BODY_CORPUS "/bodies.bin");
    return bodies;
}

std::string name_of(const CorpusBody& body) {
    std::ostringstream name;
    name << body.assembly << ' ' << std::hex << body.token;
    return name.str();
}

std::size_t long_branches(const MethodBody& body) {
    std::size_t count = 0;
    for (const Instruction& instruction : body) {
        count += operand_kind_of(instruction.opcode) == operand_kind::Br4 ? 1 : 0;
    }
    return count;
}

TEST(BodyCorpus, IsWrittenAsItWasRead) {
    std::size_t instructions = 0;
    std::size_t clauses = 0;
    std::set<std::string_view> assemblies;
    for (const CorpusBody& original : corpus().bodies()) {
        MethodBody body;
        ASSERT_EQ(read_body(original.bytes, body), BodyResult::kOk) << name_of(original);
        Bytes written;
        ASSERT_EQ(write_body(body, written), BodyResult::kOk) << name_of(original);

        // The code is the very same; only header and sections have one format now.
        ByteReader reader(original.bytes);
        const auto header = decode_header(reader);
        ASSERT_TRUE(header);
        const auto code = original.bytes.subspan(header->code_offset(), header->code_size);
        ASSERT_EQ(body.sentinel()->offset, code.size()) << name_of(original);
        ASSERT_TRUE(std::equal(code.begin(), code.end(), written.begin() + kFatHeaderSize))
            << name_of(original);

        MethodBody again;
        ASSERT_EQ(read_body(written, again), BodyResult::kOk) << name_of(original);
        ASSERT_EQ(difference(body, again), "") << name_of(original);
        instructions += body.instruction_count();
        clauses += body.clauses.size();
        assemblies.insert(original.assembly);
    }
    EXPECT_GT(corpus().bodies().size(), 100000u);
    EXPECT_GT(clauses, 10000u);
    std::cout << corpus().bodies().size() << " bodies of " << assemblies.size() << " assemblies, "
              << instructions << " instructions, " << clauses << " clauses\n";
}

class EditedCorpus : public testing::TestWithParam<int> {};

TEST_P(EditedCorpus, KeepsItsMeaning) {
    std::size_t widened = 0;
    for (const CorpusBody& original : corpus().bodies()) {
        MethodBody body;
        MethodBody edited;
        ASSERT_EQ(read_body(original.bytes, body), BodyResult::kOk) << name_of(original);
        ASSERT_EQ(read_body(original.bytes, edited), BodyResult::kOk) << name_of(original);
        const std::vector<bool> nops = insert_nops(edited, GetParam());
        Bytes written;
        ASSERT_EQ(write_body(edited, written), BodyResult::kOk) << name_of(original);
        MethodBody again;
        ASSERT_EQ(read_body(written, again), BodyResult::kOk) << name_of(original);
        ASSERT_EQ(difference(body, again, nops), "") << name_of(original);
        widened += long_branches(again) - long_branches(body);
    }
    EXPECT_GT(widened, 0u);
    std::cout << widened << " branches widened\n";
}

INSTANTIATE_TEST_SUITE_P(Nops, EditedCorpus, testing::Values(1, 8));

// FNV-1a over the bytes of numbers, the lowest first, as il_reader.cs takes it.
class NumberHash {
public:
    void add(std::uint64_t number, std::size_t size = 4) {
        for (; size != 0; --size, number >>= 8) {
            value_ = (value_ ^ (number & 0xFF)) * 0x100000001B3;
        }
    }
    [[nodiscard]] std::uint64_t value() const { return value_; }

private:
    std::uint64_t value_ = 0xCBF29CE484222325;
};

// What il_reader.cs says of one assembly.
struct CecilAssembly {
    struct Method {
        std::size_t instructions;
        std::size_t clauses;
        std::uint64_t hash;
        bool operator==(const Method&) const = default;
    };
    std::map<std::uint32_t, std::uint64_t> contents; // for tokens that Cecil does not keep
    std::map<std::uint32_t, Method> methods;
};

std::map<std::string, CecilAssembly> cecil_assemblies() {
    std::map<std::string, CecilAssembly> assemblies;
    std::istringstream lines(read_text(CORVANE_BODY_CORPUS "/cecil.txt"));
    CecilAssembly* current = nullptr;
    for (std::string kind; lines >> kind;) {
        if (kind == "assembly") {
            std::string name;
            lines >> name;
            current = &assemblies[name];
            continue;
        }
        std::uint32_t token = 0;
        lines >> std::hex >> token;
        if (kind == "content") {
            lines >> current->contents[token];
        } else {
            CecilAssembly::Method& method = current->methods[token];
            lines >> std::dec >> method.instructions >> method.clauses >> std::hex >> method.hash;
        }
    }
    return assemblies;
}

std::uint32_t opcode_value(Opcode opcode) {
    const auto number = static_cast<std::uint32_t>(opcode);
    return number < kTwoByteOpcodes ? number : std::uint32_t{kTwoByteEscape} << 8 | (number & 0xFF);
}

void add_token(NumberHash& hash, std::uint32_t token, const CecilAssembly& assembly) {
    const auto content = assembly.contents.find(token);
    if (content == assembly.contents.end()) {
        hash.add(token);
    } else {
        hash.add(content->second, 8);
    }
}

// Numbers of one or two bytes count as words.
void add_operand(NumberHash& hash, const Instruction& instruction, const CecilAssembly& assembly) {
    const std::uint8_t kind = operand_kind_of(instruction.opcode);
    if (instruction.is_branch()) {
        hash.add(instruction.target->offset);
    } else if (kind == operand_kind::I8) {
        hash.add(instruction.immediate, 8);
    } else if (kind == operand_kind::I4 && instruction.opcode != Opcode::kLdcI4 &&
               instruction.opcode != Opcode::kLdcR4) {
        add_token(hash, static_cast<std::uint32_t>(instruction.immediate), assembly);
    } else if (kind != operand_kind::None) {
        hash.add(instruction.immediate);
    }
}

CecilAssembly::Method reading_of(const CorpusBody& original, const CecilAssembly& assembly) {
    MethodBody body;
    Bytes written; // laying out gives the offsets, which for an unchanged body are those it had
    EXPECT_EQ(read_body(original.bytes, body), BodyResult::kOk) << name_of(original);
    EXPECT_EQ(write_body(body, written), BodyResult::kOk) << name_of(original);
    NumberHash hash;
    std::size_t instructions = 0;
    for (const Instruction& instruction : body) {
        if (instruction.opcode != Opcode::kSwitchTarget) {
            hash.add(instruction.offset);
            hash.add(opcode_value(instruction.opcode));
            ++instructions;
        }
        add_operand(hash, instruction, assembly);
    }
    for (const ExceptionClause& clause : body.clauses) {
        hash.add(clause.flags);
        hash.add(clause.try_first->offset);
        hash.add(clause.try_end->offset);
        hash.add(clause.handler_first->offset);
        hash.add((*clause.handler_end)->offset);
        if (clause.flags == kClauseFilter) {
            hash.add(clause.filter_first->offset);
        } else if (clause.flags == kClauseCatch) {
            add_token(hash, clause.class_token, assembly);
        }
    }
    hash.add(body.local_signature);
    hash.add(body.init_locals ? 1 : 0);
    return {instructions, body.clauses.size(), hash.value()};
}

TEST(BodyCorpus, AgreesWithCecil) {
    const std::map<std::string, CecilAssembly> assemblies = cecil_assemblies();
    EXPECT_EQ(assemblies.size(), 6u);
    std::map<std::string, std::size_t> compared;
    std::size_t different = 0;
    for (const CorpusBody& original : corpus().bodies()) {
        const std::string name(original.assembly);
        const auto assembly = assemblies.find(name);
        if (assembly == assemblies.end()) {
            continue;
        }
        ++compared[name];
        const auto method = assembly->second.methods.find(original.token);
        ASSERT_NE(method, assembly->second.methods.end()) << name_of(original);
        const CecilAssembly::Method reading = reading_of(original, assembly->second);
        if (!(reading == method->second)) {
            ++different;
            ADD_FAILURE() << name_of(original) << ": " << reading.instructions << " instructions, "
                          << reading.clauses << " clauses; Cecil has "
                          << method->second.instructions << " and " << method->second.clauses;
        }
        ASSERT_LT(different, 10u);
    }
    for (const auto& [name, assembly] : assemblies) {
        EXPECT_EQ(compared[name], assembly.methods.size()) << name;
        std::cout << name << ": " << compared[name] << " bodies as Cecil reads them\n";
    }
}

TEST(OpcodeFixture, IsWhatTheRuntimeLists) {
    EXPECT_EQ(read_text(CORVANE_BODY_CORPUS "/opcodes.txt"),
              read_text(fixture_path("opcodes.txt")));
}

} // namespace
} // namespace corvane
