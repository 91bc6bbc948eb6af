// Chooses the form of the branches of a body, in the body itself.
#pragma once

#include "rewrite/body/method_body.h"

namespace corvane {

// A short branch's long form is 13 opcodes further on; only leave.s has its long form in front of
// it.
[[nodiscard]] constexpr Opcode long_form(Opcode short_branch) {
    return short_branch == Opcode::kLeaveS
               ? Opcode::kLeave
               : static_cast<Opcode>(static_cast<std::uint16_t>(short_branch) + 13);
}

// Takes a body with offsets as if every branch kept its form and gives the long form to the short
// branches that need it, which are the fewest possible: a branch is widened only because the code
// that must be between it and its target does not leave room. Returns whether any was; the offsets
// are then out of date. Time is linear in the number of instructions.
bool widen_branches(MethodBody& body);

} // namespace corvane
