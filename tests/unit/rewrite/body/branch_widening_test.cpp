// Widening: every short form at both ends of its reach, chains, and the same outcome as laying out
// again and again until nothing changes.
#include "rewrite/body/branch_widening.h"

#include "rewrite/body/body_reader.h"
#include "rewrite/body/body_writer.h"
#include "tests/support/body_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace corvane {
namespace {

using Bytes = std::vector<std::uint8_t>;

void append_nops(MethodBody& body, int count) {
    for (int i = 0; i < count; ++i) {
        body.insert_before(body.sentinel(), Opcode::kNop);
    }
}

Bytes code_of(MethodBody& body) {
    Bytes bytes;
    EXPECT_EQ(write_body(body, bytes), BodyResult::kOk);
    const auto size = static_cast<std::ptrdiff_t>(body.sentinel()->offset);
    return {bytes.begin() + kFatHeaderSize, bytes.begin() + kFatHeaderSize + size};
}

class ShortForms : public testing::TestWithParam<int> {
protected:
    Opcode short_one() const { return static_cast<Opcode>(GetParam()); }
    std::uint8_t long_byte() const {
        return static_cast<std::uint8_t>(GetParam() == 0xDE ? 0xDD : GetParam() + 13);
    }
};

TEST_P(ShortForms, ReachForward127Bytes) {
    for (const int distance : {127, 128}) {
        MethodBody body;
        Instruction* const branch = body.insert_before(body.sentinel(), short_one());
        append_nops(body, distance);
        branch->target = body.insert_before(body.sentinel(), Opcode::kRet);
        const Bytes code = code_of(body);
        if (distance == 127) {
            EXPECT_EQ(code[0], GetParam());
            EXPECT_EQ(code[1], 0x7F);
            EXPECT_EQ(code.size(), 2u + 127u + 1u);
        } else {
            EXPECT_EQ(Bytes(code.begin(), code.begin() + 5), (Bytes{long_byte(), 0x80, 0, 0, 0}));
            EXPECT_EQ(code.size(), 5u + 128u + 1u);
        }
    }
}

TEST_P(ShortForms, ReachBack128Bytes) {
    for (const int distance : {128, 129}) {
        MethodBody body;
        append_nops(body, distance - 2);
        body.insert_before(body.sentinel(), short_one(), body.first());
        const Bytes code = code_of(body);
        if (distance == 128) {
            EXPECT_EQ(Bytes(code.end() - 2, code.end()),
                      (Bytes{static_cast<std::uint8_t>(GetParam()), 0x80}));
        } else {
            EXPECT_EQ(
                Bytes(code.end() - 5, code.end()),
                (Bytes{long_byte(), 0x7C, 0xFF, 0xFF, 0xFF})); // -132, its own growth included
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, ShortForms,
                         testing::Values(0x2B, 0x2C, 0x2D, 0x2E, 0x2F, 0x30, 0x31, 0x32, 0x33, 0x34,
                                         0x35, 0x36, 0x37, 0xDE));

TEST(Widening, LeavesLongFormsLong) {
    MethodBody body;
    Instruction* const branch = body.insert_before(body.sentinel(), Opcode::kBr);
    branch->target = body.insert_before(body.sentinel(), Opcode::kRet);
    EXPECT_THAT(code_of(body), testing::ElementsAre(0x38, 0, 0, 0, 0, 0x2A));
}

// Branches 126 bytes apart. Forward, each jumps over the next one and the last does not reach its
// target; backward, each just reaches the one before it, and the first the front of the code.
std::vector<Instruction*> append_chain(MethodBody& body, int links, bool forward) {
    std::vector<Instruction*> branches;
    append_nops(body, 126);
    for (int i = 0; i < links; ++i) {
        branches.push_back(body.insert_before(body.sentinel(), Opcode::kBrS));
        append_nops(body, 124);
    }
    append_nops(body, 10);
    Instruction* const back = body.insert_before(body.sentinel(), Opcode::kRet);
    for (std::size_t i = 0; i < branches.size(); ++i) {
        if (forward) {
            branches[i]->target = i + 1 < branches.size() ? branches[i + 1]->next : back;
        } else {
            branches[i]->target = i > 0 ? branches[i - 1] : body.first();
        }
    }
    return branches;
}

TEST(Widening, FollowsAChainForward) {
    MethodBody body;
    const auto branches = append_chain(body, 100, true);
    code_of(body);
    for (const Instruction* const branch : branches) {
        EXPECT_EQ(branch->opcode, Opcode::kBr);
    }
}

TEST(Widening, StopsAChainWhereThereIsRoom) {
    MethodBody body;
    const auto branches = append_chain(body, 100, true);
    branches[49]->target = branches[49]->next;
    code_of(body);
    for (std::size_t i = 0; i < branches.size(); ++i) {
        EXPECT_EQ(branches[i]->opcode, i < 50 ? Opcode::kBrS : Opcode::kBr) << i;
    }
}

TEST(Widening, FollowsAChainBackward) {
    MethodBody body;
    const auto branches = append_chain(body, 100, false);
    code_of(body);
    for (const Instruction* const branch : branches) {
        EXPECT_EQ(branch->opcode, Opcode::kBrS);
    }
    body.insert_before(body.first()->next, Opcode::kNop);
    code_of(body);
    for (const Instruction* const branch : branches) {
        EXPECT_EQ(branch->opcode, Opcode::kBr);
    }
}

// Lays out, widens whatever does not fit, and starts again until everything does.
void widen_in_rounds(MethodBody& body) {
    for (bool widened = true; widened;) {
        std::uint32_t offset = 0;
        for (Instruction& instruction : body) {
            instruction.offset = offset;
            const std::uint8_t kind = operand_kind_of(instruction.opcode);
            offset += 1u + (kind & operand_kind::kSizeMask);
        }
        widened = false;
        for (Instruction& instruction : body) {
            if (operand_kind_of(instruction.opcode) == operand_kind::Br1) {
                const std::int64_t delta =
                    std::int64_t{instruction.target->offset} - (instruction.offset + 2);
                if (delta < -128 || delta > 127) {
                    instruction.opcode = long_form(instruction.opcode);
                    widened = true;
                }
            }
        }
    }
}

TEST(Widening, ComesToWhatRoundAfterRoundComesTo) {
    std::mt19937 random(20240229);
    const auto below = [&random](std::size_t limit) {
        return static_cast<std::size_t>(random()) % limit;
    };
    std::size_t widened = 0;
    std::size_t kept = 0;
    for (int round = 0; round < 2000; ++round) {
        MethodBody fast;
        MethodBody slow;
        std::vector<Instruction*> fast_code;
        std::vector<Instruction*> slow_code;
        const std::size_t count = 1 + below(600);
        for (std::size_t i = 0; i < count; ++i) {
            const Opcode opcode = below(3) == 0   ? Opcode::kBrtrueS
                                  : below(9) == 0 ? Opcode::kLeaveS
                                  : below(9) == 0 ? Opcode::kLdcI8
                                  : below(9) == 0 ? Opcode::kBr
                                                  : Opcode::kNop;
            fast_code.push_back(fast.insert_before(fast.sentinel(), opcode));
            slow_code.push_back(slow.insert_before(slow.sentinel(), opcode));
        }
        // Targets near the limit of reach, so that one widening decides about another.
        for (std::size_t i = 0; i < count; ++i) {
            if (fast_code[i]->is_branch()) {
                const std::size_t near = 30 + below(30);
                const std::size_t target =
                    below(2) == 0 ? std::min(i + near, count - 1) : i - std::min(i, near);
                fast_code[i]->target = fast_code[target];
                slow_code[i]->target = slow_code[target];
            }
        }
        code_of(fast);
        widen_in_rounds(slow);
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_EQ(fast_code[i]->opcode, slow_code[i]->opcode) << round << ": " << i;
            kept += operand_kind_of(fast_code[i]->opcode) == operand_kind::Br1 ? 1 : 0;
            widened += fast_code[i]->opcode == Opcode::kBrtrue ? 1 : 0;
        }
    }
    EXPECT_GT(widened, 10000u);
    EXPECT_GT(kept, 10000u);
}

TEST(Widening, KeepsTheTargetsOfASwitch) {
    // switch (ret, switch) behind which a branch widens
    const Bytes bytes = {0x3A, 0x45, 0x01, 0, 0, 0, 0x02, 0, 0, 0, 0x2B, 0x00, 0x2A, 0x2A, 0x2A};
    MethodBody body;
    ASSERT_EQ(read_body(bytes, body), BodyResult::kOk);
    Instruction* const ret = body.first()->next->target;
    ASSERT_EQ(ret->opcode, Opcode::kRet);
    for (int i = 0; i < 200; ++i) {
        body.insert_before(ret, Opcode::kNop);
    }
    EXPECT_EQ(body.first()->next->target, ret);
    const Bytes code = code_of(body);
    EXPECT_EQ(Bytes(code.begin(), code.begin() + 14),
              (Bytes{0x45, 1, 0, 0, 0, 205, 0, 0, 0, 0x38, 200, 0, 0, 0}));
}

} // namespace
} // namespace corvane
