// Laying out and encoding: header and section as bytes, and the models that are refused.
#include "rewrite/body/body_writer.h"

#include "rewrite/body/body_reader.h"
#include "tests/support/body_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace corvane {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;

class BodyWriterTest : public testing::Test {
protected:
    Instruction* append(Opcode opcode, std::uint64_t immediate = 0) {
        return body.insert_before(body.sentinel(), opcode, immediate);
    }

    BodyResult write() { return write_body(body, bytes); }

    MethodBody body;
    Bytes bytes = {0xAA};
};

TEST_F(BodyWriterTest, WritesAFatHeaderAndPadding) {
    append(Opcode::kRet);
    body.init_locals = true;
    body.local_signature = 0x11000003;
    ASSERT_EQ(write(), BodyResult::kOk);
    EXPECT_THAT(bytes, ElementsAre(0x13, 0x30, 0x06, 0x00, 0x01, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00,
                                   0x11, 0x2A, 0x00, 0x00, 0x00));
}

TEST_F(BodyWriterTest, WritesClausesAsAFatSection) {
    Instruction* const try_first = append(Opcode::kNop);
    Instruction* const filter = append(Opcode::kEndfilter);
    Instruction* const handler = append(Opcode::kEndfinally);
    Instruction* const ret = append(Opcode::kRet);
    Instruction** const end = body.add_slot();
    body.AddClause(kClauseCatch, try_first, filter, handler, end, 0x01000002u);
    body.AddClause(try_first, filter, handler, end, filter);
    *end = ret;
    ASSERT_EQ(write(), BodyResult::kOk);
    EXPECT_THAT(bytes, ElementsAre(0x0B, 0x30, 0x06, 0, 0x05, 0, 0, 0, 0, 0, 0, 0,             //
                                   0x00, 0xFE, 0x11, 0xDC, 0x2A, 0, 0, 0,                      //
                                   0x41, 0x34, 0, 0,                                           //
                                   0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, //
                                   2, 0, 0, 1,                                                 //
                                   1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, //
                                   1, 0, 0, 0));
}

TEST_F(BodyWriterTest, CutsTheMaximumStackToSixteenBits) {
    append(Opcode::kRet);
    body.max_stack = 0x12345;
    ASSERT_EQ(write(), BodyResult::kOk);
    EXPECT_EQ(bytes[2] | bytes[3] << 8, 0x2345);
}

TEST_F(BodyWriterTest, GrowsBeyondSixBytesForEachInstruction) {
    for (int i = 0; i < 1000; ++i) {
        append(Opcode::kLdcI8, 0x0807060504030201);
    }
    ASSERT_EQ(write(), BodyResult::kOk);
    ASSERT_EQ(bytes.size(), 12u + 9000u);
    EXPECT_EQ(Bytes(bytes.end() - 9, bytes.end()), (Bytes{0x21, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(BodyWriterTest, WritesATinyHeaderWhenAskedTo) {
    append(Opcode::kNop);
    append(Opcode::kRet);
    body.tiny = true;
    ASSERT_EQ(write(), BodyResult::kOk);
    EXPECT_THAT(bytes, ElementsAre(0x0A, 0x00, 0x2A));
}

TEST_F(BodyWriterTest, FillsATinyHeaderUpTo63Bytes) {
    body.tiny = true;
    for (int i = 0; i < 63; ++i) {
        append(Opcode::kNop);
    }
    ASSERT_EQ(write(), BodyResult::kOk);
    EXPECT_EQ(bytes.size(), 64u);
    EXPECT_EQ(bytes[0], 0xFE);
    append(Opcode::kNop);
    EXPECT_EQ(write(), BodyResult::kFail);
    EXPECT_EQ(bytes.size(), 64u);
}

TEST_F(BodyWriterTest, RefusesATinyHeaderThatWouldLoseSomething) {
    Instruction* const ret = append(Opcode::kRet);
    body.tiny = true;
    body.local_signature = 0x11000001;
    EXPECT_EQ(write(), BodyResult::kFail);
    body.local_signature = 0;
    body.init_locals = true;
    EXPECT_EQ(write(), BodyResult::kFail);
    body.init_locals = false;
    body.AddClause(kClauseFinally, ret, body.sentinel(), ret, body.add_slot(body.sentinel()), 0u);
    EXPECT_EQ(write(), BodyResult::kFail);
    EXPECT_THAT(bytes, ElementsAre(0xAA));
}

TEST_F(BodyWriterTest, RefusesBranchesWithoutAnInstruction) {
    Instruction* const branch = append(Opcode::kBrS);
    append(Opcode::kRet);
    EXPECT_EQ(write(), BodyResult::kMalformed);
    branch->target = body.sentinel();
    EXPECT_EQ(write(), BodyResult::kMalformed);
    EXPECT_THAT(bytes, ElementsAre(0xAA));
    branch->target = branch;
    EXPECT_EQ(write(), BodyResult::kOk);
}

TEST_F(BodyWriterTest, RefusesSwitchesWithoutTheirTargets) {
    Instruction* const many = append(Opcode::kSwitch, 2);
    Instruction* const first = body.insert_before(body.sentinel(), Opcode::kSwitchTarget, many);
    EXPECT_EQ(write(), BodyResult::kMalformed); // one is missing at the end
    Instruction* const ret = append(Opcode::kRet);
    EXPECT_EQ(write(), BodyResult::kMalformed); // one is missing
    Instruction* const second = body.insert_before(ret, Opcode::kSwitchTarget, first);
    EXPECT_EQ(write(), BodyResult::kMalformed); // a target names a target
    second->target = ret;
    EXPECT_EQ(write(), BodyResult::kOk);
    body.insert_before(ret, Opcode::kSwitchTarget, ret);
    EXPECT_EQ(write(), BodyResult::kMalformed); // one too many
}

TEST_F(BodyWriterTest, RefusesAnotherInstructionBetweenSwitchTargets) {
    append(Opcode::kSwitch, 2);
    Instruction* const first = append(Opcode::kSwitchTarget);
    Instruction* const second = append(Opcode::kSwitchTarget);
    Instruction* const ret = append(Opcode::kRet);
    first->target = second->target = ret;
    EXPECT_EQ(write(), BodyResult::kOk);
    bytes = {0xAA};
    Instruction* const foreign = body.insert_before(second, Opcode::kNop);
    EXPECT_EQ(write(), BodyResult::kMalformed);
    foreign->opcode = Opcode::kSwitch; // one that asks for targets of its own
    EXPECT_EQ(write(), BodyResult::kMalformed);
    EXPECT_THAT(bytes, ElementsAre(0xAA));
}

TEST_F(BodyWriterTest, RefusesNumbersThatAreNoOpcodes) {
    for (const int number : {0xF8, 0xFE, 294, 296, 303, 304, 0xFFFF}) {
        MethodBody wrong;
        wrong.insert_before(wrong.sentinel(), Opcode::kNop)->opcode = static_cast<Opcode>(number);
        EXPECT_EQ(write_body(wrong, bytes), BodyResult::kMalformed) << number;
    }
}

TEST_F(BodyWriterTest, RefusesClausesWithoutTheirInstructions) {
    Instruction* const first = append(Opcode::kNop);
    Instruction* const last = append(Opcode::kRet);
    Instruction** const slot = body.add_slot(last);
    const auto refused = [&](const ExceptionClause& clause) {
        body.clauses = {clause};
        return write() == BodyResult::kMalformed;
    };
    const ExceptionClause good{kClauseFinally, first, last, first, slot, {}};
    EXPECT_FALSE(refused(good));
    ExceptionClause bad = good;
    bad.flags = 3;
    EXPECT_TRUE(refused(bad));
    bad = good;
    bad.try_first = nullptr;
    EXPECT_TRUE(refused(bad));
    bad.try_first = body.sentinel();
    EXPECT_TRUE(refused(bad));
    bad = good;
    bad.try_end = nullptr;
    EXPECT_TRUE(refused(bad));
    bad = good;
    bad.handler_first = nullptr;
    EXPECT_TRUE(refused(bad));
    bad = good;
    bad.handler_end = nullptr;
    EXPECT_TRUE(refused(bad));
    bad.handler_end = body.add_slot();
    EXPECT_TRUE(refused(bad)); // never bound
    bad = good;
    bad.flags = kClauseFilter;
    bad.filter_first = nullptr;
    EXPECT_TRUE(refused(bad));
    bad = good;
    bad.try_first = last;
    bad.try_end = first;
    EXPECT_TRUE(refused(bad)); // ends in front of its beginning
    bad = good;
    bad.handler_first = last;
    bad.handler_end = body.add_slot(first);
    EXPECT_TRUE(refused(bad));
    EXPECT_FALSE(refused(good));
}

TEST_F(BodyWriterTest, WritesAsManyClausesAsASectionCanCount) {
    Instruction* const ret = append(Opcode::kRet);
    Instruction** const end = body.add_slot(body.sentinel());
    const ExceptionClause clause{kClauseFinally, ret, body.sentinel(), ret, end, {}};
    body.clauses.assign(kMaxClauses, clause);
    ASSERT_EQ(kMaxClauses, 699050u);
    ASSERT_EQ(write(), BodyResult::kOk);
    MethodBody again;
    ASSERT_EQ(read_body(bytes, again), BodyResult::kOk);
    EXPECT_EQ(again.clauses.size(), kMaxClauses);
    body.clauses.push_back(clause);
    EXPECT_EQ(write(), BodyResult::kMalformed);
}

} // namespace
} // namespace corvane
