// The opcode tables against the runtime's own list of opcodes (System.Reflection.Emit.OpCodes,
// listed by il_reader.cs into fixtures/opcodes.txt), and what that list does not know: reserved
// slots, pseudo-entries and the numbers of the rewriter.
#include "il/opcode_table.h"
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>
#include <string>

namespace corvane {
namespace {

std::size_t number_of(std::uint32_t value) {
    return value >= 0xFE00 ? kTwoByteOpcodes + (value & 0xFF) : value;
}

const std::map<std::string, std::uint8_t> kOperandKinds = {
    {"InlineNone", 0x00},   {"ShortInlineI", 0x01},  {"ShortInlineVar", 0x01},
    {"InlineVar", 0x02},    {"InlineI", 0x04},       {"ShortInlineR", 0x04},
    {"InlineMethod", 0x04}, {"InlineField", 0x04},   {"InlineType", 0x04},
    {"InlineTok", 0x04},    {"InlineString", 0x04},  {"InlineSig", 0x04},
    {"InlineI8", 0x08},     {"InlineR", 0x08},       {"ShortInlineBrTarget", 0x11},
    {"InlineSwitch", 0x20}, {"InlineBrTarget", 0x14}};

const std::map<std::string, OpcodeFlow> kFlows = {
    {"Next", OpcodeFlow::Next},     {"Break", OpcodeFlow::Break},
    {"Call", OpcodeFlow::Call},     {"Return", OpcodeFlow::Return},
    {"Branch", OpcodeFlow::Branch}, {"Cond_Branch", OpcodeFlow::CondBranch},
    {"Throw", OpcodeFlow::Throw},   {"Meta", OpcodeFlow::Meta}};

TEST(OpcodeTable, AgreesWithTheRuntimesOwnList) {
    std::istringstream lines(read_text(fixture_path("opcodes.txt")));
    std::set<std::size_t> listed;
    std::string operand_type;
    std::string flow;
    std::string name;
    std::uint32_t value = 0;
    std::uint32_t size = 0;
    std::uint32_t operand_size = 0;
    std::int32_t pushes = 0;
    while (lines >> std::hex >> value >> std::dec >> name >> size >> operand_size >> operand_type >>
           flow >> pushes) {
        SCOPED_TRACE(name);
        const std::size_t number = number_of(value);
        listed.insert(number);
        ASSERT_LT(number, kOpcodeCount);
        const OpcodeInfo& info = OpcodeTable[number];
        EXPECT_EQ(info.name, name);
        EXPECT_EQ(info.byte1, size == 2 ? 0xFE : 0xFF);
        EXPECT_EQ(info.byte2, value & 0xFF);
        EXPECT_EQ(info.length, size);
        EXPECT_EQ(info.operandSize, operand_size);
        EXPECT_EQ(info.flow, kFlows.at(flow));
        EXPECT_EQ(OpcodeOperandKind[number], kOperandKinds.at(operand_type));
        EXPECT_EQ(OpcodeStackPush[number], pushes);
    }
    EXPECT_TRUE(lines.eof());
    EXPECT_EQ(listed.size(), 226u);

    for (std::size_t number = 0; number < kPseudoOpcodes; ++number) {
        EXPECT_EQ(listed.contains(number), OpcodeTable[number].name != std::string("unused"))
            << number;
    }
}

TEST(OpcodeTable, NumbersTheKindsOfFlow) {
    const std::pair<std::size_t, std::uint32_t> codes[] = {
        {0x00, 0},  // nop
        {0x01, 1},  // break
        {0x28, 2},  // call
        {0x2A, 3},  // ret
        {0x2B, 4},  // br.s
        {0x2C, 5},  // brfalse.s
        {0x7A, 6},  // throw
        {0xFF, 7},  // prefixref
        {0x114, 7}, // tail.
    };
    for (const auto& [number, code] : codes) {
        EXPECT_EQ(static_cast<std::uint32_t>(OpcodeTable[number].flow), code) << number;
    }
}

TEST(OpcodeTable, NamesEveryReservedSlot) {
    const std::pair<int, int> ranges[] = {{0x24, 0x24},   {0x77, 0x78},   {0xA6, 0xB2},
                                          {0xBB, 0xC1},   {0xC4, 0xC5},   {0xC7, 0xCF},
                                          {0xE1, 0xF7},   {0x108, 0x108}, {0x110, 0x110},
                                          {0x119, 0x119}, {0x11B, 0x11B}, {0x11F, 0x122}};
    std::size_t slots = 0;
    for (const auto& [first, last] : ranges) {
        for (int number = first; number <= last; ++number) {
            const OpcodeInfo& info = OpcodeTable[number];
            EXPECT_STREQ(info.name, "unused") << number;
            EXPECT_EQ(info.byte1, number < 0x100 ? 0xFF : 0xFE);
            EXPECT_EQ(info.byte2, number & 0xFF);
            EXPECT_EQ(info.length, number < 0x100 ? 1u : 2u);
            EXPECT_EQ(info.operandSize, 0u);
            EXPECT_EQ(info.flow, OpcodeFlow::Next);
            EXPECT_EQ(OpcodeOperandKind[static_cast<std::size_t>(number)], 0x00);
            EXPECT_EQ(OpcodeStackPush[number], 0);
            ++slots;
        }
    }
    std::size_t unused = 0;
    for (const OpcodeInfo& info : OpcodeTable) {
        unused += info.name == std::string("unused") ? 1 : 0;
    }
    EXPECT_EQ(unused, slots);
}

TEST(OpcodeTable, HasThePrefixesOfOtherPages) {
    const char* const names[] = {"prefix7", "prefix6", "prefix5", "prefix4",
                                 "prefix3", "prefix2", "prefix1", "prefixref"};
    for (std::size_t i = 0; i < std::size(names); ++i) {
        const OpcodeInfo& info = OpcodeTable[0xF8 + i];
        EXPECT_STREQ(info.name, names[i]);
        EXPECT_EQ(info.length, 1u);
        EXPECT_EQ(info.operandSize, 0u);
        EXPECT_EQ(info.flow, OpcodeFlow::Meta);
    }
}

TEST(OpcodeTable, EndsWithThePseudoEntries) {
    const char* const names[] = {"illegal", "endmac", "codelabel"};
    for (std::size_t i = 0; i < std::size(names); ++i) {
        const OpcodeInfo& info = OpcodeTable[291 + i];
        EXPECT_STREQ(info.name, names[i]);
        EXPECT_EQ(info.byte1, 0);
        EXPECT_EQ(info.byte2, 0);
        EXPECT_EQ(info.length, 0u);
        EXPECT_EQ(info.operandSize, 0u);
        EXPECT_EQ(info.flow, OpcodeFlow::Meta);
        EXPECT_EQ(OpcodeOperandKind[291 + i], 0x00);
        EXPECT_EQ(OpcodeStackPush[291 + i], 0);
    }
}

TEST(OpcodeTable, CountsOnlyTheCountOfASwitch) {
    const OpcodeInfo& info = OpcodeTable[0x45];
    EXPECT_STREQ(info.name, "switch");
    EXPECT_EQ(info.length + info.operandSize, 5u);
    EXPECT_EQ(OpcodeOperandKind[0x45], 0x20);
}

TEST(OpcodeOperandKind, HasTheNumbersOfEachKind) {
    std::map<std::uint8_t, int> counts;
    for (const std::uint8_t kind : OpcodeOperandKind) {
        ++counts[kind];
    }
    const std::map<std::uint8_t, int> expected = {{0x00, 224}, {0x01, 8},  {0x02, 6},  {0x04, 34},
                                                  {0x08, 2},   {0x11, 14}, {0x14, 15}, {0x20, 1}};
    EXPECT_EQ(counts, expected);
    for (std::size_t number = kOpcodeCount; number < kOpcodeNumberCount; ++number) {
        EXPECT_EQ(OpcodeOperandKind[number], number == 295 ? 0x14 : 0x00) << number;
    }
}

TEST(OpcodeStackPush, PushesOneValueFor142Opcodes) {
    EXPECT_EQ(std::count(std::begin(OpcodeStackPush), std::end(OpcodeStackPush), 1), 142);
    EXPECT_EQ(std::count(std::begin(OpcodeStackPush), std::end(OpcodeStackPush), 2), 1);
    EXPECT_EQ(OpcodeStackPush[0x25], 2);
}

TEST(OpcodeNumbers, BeginAnInstructionUnlessTheyLeadToOtherPages) {
    for (std::uint32_t number = 0; number < 0x200; ++number) {
        const bool leads_on = number >= 0xF8 && number <= 0xFE;
        EXPECT_EQ(is_code_opcode(number), !leads_on && number < 0x126) << number;
    }
}

} // namespace
} // namespace corvane
