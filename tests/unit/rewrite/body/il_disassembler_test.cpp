// The listing on its channel: nothing of it at the threshold that it has by default, all of it
// at 4.
#include "rewrite/body/il_disassembler.h"

#include "base/debug_log.h"
#include "tests/support/debug_output.h"

#include <gtest/gtest.h>

#include <vector>

namespace corvane::testing {
namespace {

using Bytes = std::vector<std::uint8_t>;

const Bytes kTiny = {0x0A, 0x00, 0x2A};

TEST(IlDisassembler, WritesNothingByDefault) {
    DebugOutput output;
    il_disassembler(kTiny).listing();
    il_disassembler(kTiny, 3).listing();
    EXPECT_EQ(output.raw(), L"");
    EXPECT_EQ(output.narrow_lines() + output.wide_lines(), 0);
}

TEST(IlDisassembler, ListsATinyBody) {
    DebugOutput output;
    il_disassembler(kTiny, 4).listing();
    EXPECT_EQ(output.text(), L"[]il_disassembler:() : Code section:\n\n"
                             L"[]il_disassembler:() :  IL_0000: nop \t\t 0x00\n\n"
                             L"[]il_disassembler:() :  IL_0001: ret \t\t 0x2a\n\n"
                             L"[]il_disassembler:() : Exception handling section:\n\n"
                             L"[]il_disassembler:() : <empty>\n");
    EXPECT_EQ(output.wide_lines(), 0);
    EXPECT_EQ(output.narrow_lines(), 5);
}

TEST(IlDisassembler, ListsClausesWithTheirBlocks) {
    const Bytes body = {0x0B, 0x30, 8,    0,    6,    0,    0, 0, 0, 0, 0, 0, // fat header
                        0x00, 0xDE, 0x01, 0xDC, 0x00, 0x2A, 0, 0,             // code, padding
                        0x01, 16,   0,    0,                                  // small section
                        2,    0,    0,    0,    3,    3,    0, 1, 0, 0, 0, 0};
    DebugOutput output;
    il_disassembler(body, 5).listing();
    EXPECT_EQ(output.text(), L"[]il_disassembler:() : Code section:\n\n"
                             L"[]il_disassembler:() :  IL_0000: nop \t\t 0x00\n\n"
                             L"[]il_disassembler:() :  IL_0001: leave.s \t\t 0xde,0x01\n\n"
                             L"[]il_disassembler:() :  IL_0003: endfinally \t\t 0xdc\n\n"
                             L"[]il_disassembler:() :  IL_0004: nop \t\t 0x00\n\n"
                             L"[]il_disassembler:() :  IL_0005: ret \t\t 0x2a\n\n"
                             L"[]il_disassembler:() : Exception handling section:\n\n"
                             L"[]il_disassembler:() :  small FINALLY clause:\n\n"
                             L"[]il_disassembler:() :  .try\n"
                             L"[]il_disassembler:() :  IL_0000: nop\n"
                             L"[]il_disassembler:() :  IL_0001: leave.s\n"
                             L"[]il_disassembler:() :  .catch\n"
                             L"[]il_disassembler:() :  IL_0000: endfinally\n");
}

TEST(IlDisassembler, ListsATwoByteOpcodeAsTwo) {
    DebugOutput output;
    il_disassembler(Bytes{0x0E, 0xFE, 0x01, 0x2A}, 4).listing();
    EXPECT_EQ(output.text(), L"[]il_disassembler:() : Code section:\n\n"
                             L"[]il_disassembler:() :  IL_0000: prefix1 \t\t 0xfe\n\n"
                             L"[]il_disassembler:() :  IL_0001: break \t\t 0x01\n\n"
                             L"[]il_disassembler:() :  IL_0002: ret \t\t 0x2a\n\n"
                             L"[]il_disassembler:() : Exception handling section:\n\n"
                             L"[]il_disassembler:() : <empty>\n");
}

TEST(IlDisassembler, ListsNothingOfBytesThatAreNoBody) {
    DebugOutput output;
    il_disassembler(Bytes{0x0E, 0x00}, 4).listing();
    EXPECT_EQ(output.raw(), L"");
}

TEST(NarrowLog, SaysWhetherItWrites) {
    const DebuggerPresence attached(true);
    const NarrowDebugLog log("", 3);
    EXPECT_TRUE(log.writes(1));
    EXPECT_TRUE(log.writes(3));
    EXPECT_FALSE(log.writes(4));
}

} // namespace
} // namespace corvane::testing
