// The model: insertion, the maximum stack, regions that end with the code, and the builder.
#include "rewrite/body/method_body.h"

#include "rewrite/body/body_reader.h"
#include "rewrite/body/body_writer.h"
#include "rewrite/body/il_builder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory_resource>
#include <vector>

namespace corvane {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::ElementsAreArray;

std::vector<Opcode> opcodes(const MethodBody& body) {
    std::vector<Opcode> list;
    for (const Instruction& instruction : body) {
        list.push_back(instruction.opcode);
    }
    return list;
}

Bytes code_of(MethodBody& body) {
    Bytes bytes;
    EXPECT_EQ(write_body(body, bytes), BodyResult::kOk);
    const std::size_t size = body.sentinel()->offset;
    return {bytes.begin() + kFatHeaderSize,
            bytes.begin() + kFatHeaderSize + static_cast<std::ptrdiff_t>(size)};
}

TEST(MethodBody, StartsEmpty) {
    MethodBody body;
    EXPECT_EQ(body.instruction_count(), 0u);
    EXPECT_EQ(body.first(), body.sentinel());
    EXPECT_EQ(body.begin(), body.end());
    EXPECT_EQ(body.max_stack, 0u);
    EXPECT_EQ(body.local_signature, 0u);
    EXPECT_FALSE(body.init_locals);
    EXPECT_FALSE(body.tiny);
    EXPECT_TRUE(body.clauses.empty());
}

TEST(MethodBody, InsertsInFrontOfAnAnchor) {
    MethodBody body;
    Instruction* const ret = body.insert_before(body.sentinel(), Opcode::kRet);
    Instruction* const pop = body.insert_before(ret, Opcode::kPop);
    Instruction* const load = body.insert_before(pop, Opcode::kLdcI4, 0x12345678);
    EXPECT_THAT(opcodes(body), ElementsAre(Opcode::kLdcI4, Opcode::kPop, Opcode::kRet));
    EXPECT_EQ(body.first(), load);
    EXPECT_EQ(load->immediate, 0x12345678u);
    EXPECT_EQ(pop->immediate, 0u);
    EXPECT_EQ(ret->previous, pop);
    EXPECT_EQ(pop->previous, load);
    EXPECT_EQ(load->previous, body.sentinel());
    EXPECT_EQ(ret->next, body.sentinel());
    EXPECT_EQ(body.instruction_count(), 3u);
}

TEST(MethodBody, AddsWhatEveryInstructionPushesToTheMaximumStack) {
    const Bytes bytes = {0x13, 0x30, 0x05, 0x00, 0x04, 0x00, 0x00, 0x00,
                         0x00, 0x00, 0x00, 0x00, 0x16, 0x25, 0x26, 0x2A}; // ldc.i4.0, dup, pop, ret
    MethodBody body;
    ASSERT_EQ(read_body(bytes, body), BodyResult::kOk);
    EXPECT_EQ(body.max_stack, 8u);
    body.insert_before(body.first(), Opcode::kCall, 0x0A000001);
    EXPECT_EQ(body.max_stack, 9u);
    body.insert_before(body.first(), Opcode::kNop);
    EXPECT_EQ(body.max_stack, 9u);
}

TEST(MethodBody, TakesATinyHeaderAsEightDeep) {
    MethodBody body;
    ASSERT_EQ(read_body(Bytes{0x0A, 0x16, 0x2A}, body), BodyResult::kOk);
    EXPECT_EQ(body.max_stack, 9u);
    EXPECT_FALSE(body.tiny);
    EXPECT_FALSE(body.init_locals);
}

TEST(MethodBody, EndsLastRegionsWhereTheCodeEnded) {
    const Bytes bytes = {0x0B, 0x30, 0x01, 0x00, 0x06, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                         0x00, 0x00, 0xDE, 0xFC, 0x00, 0xDC, 0x00, 0x00, //
                         0x01, 0x1C, 0x00, 0x00,                         //
                         0x02, 0x00, 0x00, 0x00, 0x04, 0x04, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00,
                         0x02, 0x00, 0x04, 0x00, 0x02, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x00};
    MethodBody body;
    ASSERT_EQ(read_body(bytes, body), BodyResult::kOk);
    ASSERT_EQ(*body.clauses[0].handler_end, body.sentinel());
    ASSERT_EQ(body.clauses[1].try_end, body.sentinel());
    Instruction* const* const untouched = body.clauses[1].handler_end;
    Instruction* const appended = body.insert_before(body.sentinel(), Opcode::kNop);
    body.end_regions_at(appended);
    EXPECT_EQ(*body.clauses[0].handler_end, appended);
    EXPECT_EQ(body.clauses[0].try_end, body.clauses[0].handler_first);
    EXPECT_EQ(body.clauses[1].try_end, appended);
    EXPECT_EQ(body.clauses[1].handler_end, untouched);
}

TEST(MethodBody, KeepsASlotThatAnEmitterStillHolds) {
    MethodBody body;
    Instruction* const first = body.insert_before(body.sentinel(), Opcode::kNop);
    Instruction** const slot = body.add_slot(body.sentinel());
    body.AddClause(kClauseFinally, first, first, first, slot, 0u);
    Instruction* const end = body.insert_before(body.sentinel(), Opcode::kRet);
    body.end_regions_at(end);
    EXPECT_EQ(body.clauses[0].handler_end, slot);
    EXPECT_EQ(*slot, end);
    *slot = first;
    EXPECT_EQ(*body.clauses[0].handler_end, first);
}

TEST(MethodBody, SaysWhenMemoryRunsOut) {
    std::pmr::memory_resource* const usual =
        std::pmr::set_default_resource(std::pmr::null_memory_resource());
    MethodBody body;
    std::pmr::set_default_resource(usual);
    EXPECT_EQ(read_body(Bytes{0x0A, 0x16, 0x2A}, body), BodyResult::kOutOfMemory);
}

TEST(IlBuilder, EmitsEveryInstruction) {
    MethodBody body;
    IlBuilder il(body, body.insert_before(body.sentinel(), Opcode::kRet));
    Instruction* const start = il.nop();
    il.pop();
    il.ldnull();
    il.ldc_i4_0();
    il.ldc_i4_1();
    il.ldc_i4(0x01020304);
    il.ldc_i4_s(127);
    il.ldstr(0x70000001);
    il.ldarg_0();
    il.ldarg_s(255);
    il.starg_s(1);
    il.ldloc_s(255);
    il.stloc_s(2);
    il.add();
    il.ceq();
    il.clt();
    il.conv_i4();
    il.newarr(0x01000001);
    il.ldlen();
    il.ldelem_i4();
    il.ldelem_ref();
    il.stelem_ref();
    il.ldobj(0x01000002);
    il.box(0x01000003);
    il.unbox_any(0x01000004);
    il.castclass(0x01000005);
    il.isinst(0x01000006);
    il.call(0x0A000001);
    il.callvirt(0x0A000002);
    il.newobj(0x0A000003);
    il.br_s(start);
    il.brtrue_s(start);
    il.brfalse_s(start);
    il.bne_un_s(start);
    il.leave_s(start);
    il.throw_();
    il.rethrow();
    il.endfinally();
    il.endfilter();
    il.ret();
    const Bytes expected = {0x00, 0x26, 0x14, 0x16, 0x17,                               //
                            0x20, 0x04, 0x03, 0x02, 0x01, 0x1F, 0x7F,                   //
                            0x72, 0x01, 0x00, 0x00, 0x70,                               //
                            0x02, 0x0E, 0xFF, 0x10, 0x01, 0x11, 0xFF, 0x13, 0x02,       //
                            0x58, 0xFE, 0x01, 0xFE, 0x04, 0x69,                         //
                            0x8D, 0x01, 0x00, 0x00, 0x01, 0x8E, 0x94, 0x9A, 0xA2,       //
                            0x71, 0x02, 0x00, 0x00, 0x01, 0x8C, 0x03, 0x00, 0x00, 0x01, //
                            0xA5, 0x04, 0x00, 0x00, 0x01, 0x74, 0x05, 0x00, 0x00, 0x01, //
                            0x75, 0x06, 0x00, 0x00, 0x01, 0x28, 0x01, 0x00, 0x00, 0x0A, //
                            0x6F, 0x02, 0x00, 0x00, 0x0A, 0x73, 0x03, 0x00, 0x00, 0x0A, //
                            0x2B, 0xAD, 0x2D, 0xAB, 0x2C, 0xA9, 0x33, 0xA7, 0xDE, 0xA5, //
                            0x7A, 0xFE, 0x1A, 0xDC, 0xFE, 0x11, 0x2A, 0x2A};
    EXPECT_THAT(code_of(body), ElementsAreArray(expected));
}

TEST(IlBuilder, BindsForwardReferencesToWhatFollows) {
    MethodBody body;
    Instruction* const anchor = body.insert_before(body.sentinel(), Opcode::kRet);
    IlBuilder il(body, anchor);
    Instruction* const skip = il.brtrue_s();
    Instruction* const leave = il.leave_s();
    il.bind(skip->target);
    Instruction** const slot = body.add_slot();
    il.bind(*slot);
    Instruction* const next = il.nop();
    il.pop();
    il.bind(leave->target);
    EXPECT_EQ(skip->target, next);
    EXPECT_EQ(*slot, next);
    EXPECT_EQ(leave->target, anchor);
    EXPECT_THAT(code_of(body), ElementsAre(0x2D, 0x02, 0xDE, 0x02, 0x00, 0x26, 0x2A));
}

TEST(IlBuilder, WritesAByteAsItIs) {
    MethodBody body;
    IlBuilder il(body, body.sentinel());
    il.ldarg_s(255);
    il.starg_s(255);
    il.ldloc_s(255);
    il.stloc_s(255);
    il.ldc_i4_s(127);
    il.ldc_i4_s(-1);
    EXPECT_THAT(code_of(body), ElementsAre(0x0E, 0xFF, 0x10, 0xFF, 0x11, 0xFF, 0x13, 0xFF, 0x1F,
                                           0x7F, 0x1F, 0xFF));
}

TEST(IlBuilder, MakesABlockWithACatchHandlerThatGoesOnBehindBoth) {
    MethodBody body;
    Instruction* const anchor = body.insert_before(body.sentinel(), Opcode::kRet);
    IlBuilder il(body, anchor);
    Instruction* const first = il.nop();
    const ProtectedBlock block = il.begin_handler(first);
    Instruction* const handler = il.pop();
    il.leave_handler(block, 0x01000007);
    Instruction* const behind = il.nop();
    EXPECT_THAT(code_of(body), ElementsAre(0x00, 0xDE, 0x03, 0x26, 0xDE, 0x00, 0x00, 0x2A));
    ASSERT_EQ(body.clauses.size(), 1u);
    const ExceptionClause& clause = body.clauses[0];
    EXPECT_EQ(clause.flags, kClauseCatch);
    EXPECT_EQ(clause.try_first, first);
    EXPECT_EQ(clause.try_end, handler);
    EXPECT_EQ(clause.handler_first, handler);
    EXPECT_EQ(*clause.handler_end, behind);
    EXPECT_EQ(clause.class_token, 0x01000007u);
}

TEST(IlBuilder, MakesABlockWithAFilterInFrontOfItsHandler) {
    MethodBody body;
    Instruction* const anchor = body.insert_before(body.sentinel(), Opcode::kRet);
    IlBuilder il(body, anchor);
    Instruction* const first = il.nop();
    const ProtectedBlock block = il.begin_handler(first);
    Instruction* const filter = il.pop();
    il.ldc_i4_0();
    il.endfilter();
    Instruction* const handler = il.pop();
    il.rethrow();
    il.end_handler(block, handler);
    Instruction* const behind = il.nop();
    EXPECT_THAT(code_of(body), ElementsAre(0x00, 0xDE, 0x07, 0x26, 0x16, 0xFE, 0x11, 0x26, 0xFE,
                                           0x1A, 0x00, 0x2A));
    ASSERT_EQ(body.clauses.size(), 1u);
    const ExceptionClause& clause = body.clauses[0];
    EXPECT_EQ(clause.flags, kClauseFilter);
    EXPECT_EQ(clause.try_first, first);
    EXPECT_EQ(clause.try_end, filter);
    EXPECT_EQ(clause.filter_first, filter);
    EXPECT_EQ(clause.handler_first, handler);
    EXPECT_EQ(*clause.handler_end, behind);
}

// The handler of the outer block holds the inner one and ends by itself.
TEST(IlBuilder, NestsBlocks) {
    MethodBody body;
    Instruction* const anchor = body.insert_before(body.sentinel(), Opcode::kRet);
    IlBuilder il(body, anchor);
    const ProtectedBlock outer = il.begin_handler(il.nop());
    Instruction* const inner_first = il.nop();
    const ProtectedBlock inner = il.begin_handler(inner_first);
    il.pop();
    il.leave_handler(inner, 0x01000007);
    Instruction* const behind_inner = il.nop();
    il.endfinally();
    il.end_handler(outer, kClauseFinally);
    EXPECT_THAT(code_of(body), ElementsAre(0x00, 0xDE, 0x08, 0x00, 0xDE, 0x03, 0x26, 0xDE, 0x00,
                                           0x00, 0xDC, 0x2A));
    ASSERT_EQ(body.clauses.size(), 2u);
    EXPECT_EQ(body.clauses[0].try_first, inner_first);
    EXPECT_EQ(*body.clauses[0].handler_end, behind_inner);
    EXPECT_EQ(body.clauses[1].flags, kClauseFinally);
    EXPECT_EQ(body.clauses[1].handler_first, inner_first);
    EXPECT_EQ(*body.clauses[1].handler_end, anchor);
    EXPECT_EQ(body.clauses[1].class_token, 0u);
}

} // namespace
} // namespace corvane
