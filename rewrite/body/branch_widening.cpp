// Widening one branch moves the branches across it further from their targets, so that they may
// have to widen too. A new layout until nothing changes would find them, in as many rounds as the
// longest chain has links. Here the distance of every short branch is kept up to date instead. A
// short branch is at most 129 bytes from anything that it jumps across. So each widening looks at a
// bounded number of neighbours, and each branch is widened once.

#include "rewrite/body/branch_widening.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

namespace corvane {

namespace {

constexpr std::int64_t kShortBranchSize = 2;
constexpr std::int64_t kGrowth = 3;
constexpr std::uint32_t kReach = kShortBranchSize + std::numeric_limits<std::int8_t>::max();

bool is_short_branch(const Instruction& instruction) {
    return operand_kind_of(instruction.opcode) == operand_kind::Br1;
}

struct ShortBranch {
    Instruction* instruction;
    std::uint32_t offset; // before any widening, like the target's
    std::uint32_t target;
    std::int64_t distance; // from the end of the branch to its target, as things stand
};

class Widening {
public:
    explicit Widening(MethodBody& body) {
        branches_.reserve(
            static_cast<std::size_t>(std::count_if(body.begin(), body.end(), is_short_branch)));
        for (Instruction& instruction : body) {
            if (is_short_branch(instruction)) {
                const std::uint32_t offset = instruction.offset;
                const std::uint32_t target = instruction.target->offset;
                branches_.push_back({&instruction, offset, target,
                                     std::int64_t{target} - offset - kShortBranchSize});
            }
        }
    }

    bool settle() {
        for (std::size_t i = 0; i < branches_.size(); ++i) {
            widen_if_needed(i);
        }
        const bool any = !widened_.empty();
        while (!widened_.empty()) {
            const std::size_t grown = widened_.back();
            widened_.pop_back();
            make_room(grown);
        }
        return any;
    }

private:
    void widen_if_needed(std::size_t index) {
        const ShortBranch& branch = branches_[index];
        if (branch.distance < std::numeric_limits<std::int8_t>::min() ||
            branch.distance > std::numeric_limits<std::int8_t>::max()) {
            branch.instruction->opcode = long_form(branch.instruction->opcode);
            widened_.push_back(index);
        }
    }

    // Offsets from before any widening tell who jumps across whom: the order of the code stays, and
    // what is between two instructions only grows.
    void make_room(std::size_t grown) {
        const std::uint32_t at = branches_[grown].offset;
        for (std::size_t i = grown; i-- > 0 && at - branches_[i].offset <= kReach;) {
            if (branches_[i].target > at) {
                lengthen(i, kGrowth);
            }
        }
        for (std::size_t i = grown + 1; i < branches_.size() && branches_[i].offset - at <= kReach;
             ++i) {
            if (branches_[i].target <= at) {
                lengthen(i, -kGrowth);
            }
        }
    }

    void lengthen(std::size_t index, std::int64_t growth) {
        if (is_short_branch(*branches_[index].instruction)) {
            branches_[index].distance += growth;
            widen_if_needed(index);
        }
    }

    std::vector<ShortBranch> branches_; // in the order of the code
    std::vector<std::size_t> widened_;  // their neighbours do not know yet
};

} // namespace

bool widen_branches(MethodBody& body) {
    return Widening(body).settle();
}

} // namespace corvane
