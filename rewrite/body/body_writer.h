// Turns the model of a method body into its bytes: the way back from body_reader.h.
#pragma once

#include "rewrite/body/method_body.h"

#include <cstdint>
#include <vector>

namespace corvane {

// Lays the body out: gives every instruction its offset and short branches that do not reach their
// target their long form, then replaces `bytes` by header, code and exception table. The header is
// fat unless the body asks for a tiny one.
// kFail if a body marked tiny cannot have a tiny header; kMalformed for a model that no bytes stand
// for (a branch or clause without its instructions, a switch without its targets, more clauses or
// code than the format can count); kOutOfMemory. `bytes` stay as they are then.
BodyResult write_body(MethodBody& body, std::vector<std::uint8_t>& bytes);

// The maximum stack that its header gets: six at least, and of a sum beyond 16 bits the lower ones
// only, which is deliberate. It may be less than the code takes then.
[[nodiscard]] std::uint16_t written_max_stack(const MethodBody& body);

} // namespace corvane
