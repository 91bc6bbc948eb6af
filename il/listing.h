// Two texts of a method body, for the reader of a new body. Both are diagnostic aids with a fixed
// text. They walk the code with the one-byte half of the opcode table only. So a two-byte opcode
// appears as "prefix1" and the opcode of its second byte, and the targets of a switch appear as
// opcodes. Pure; nothing outside the given bytes is read.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace corvane {

// Header fields, code bytes and clauses as one piece of text. Of bytes that are no method body only
// the bytes themselves are shown.
[[nodiscard]] std::wstring dumpBody(const std::uint8_t* body, std::uint32_t length);

// Takes one piece of a listing; the pieces do not all end their line.
using ListingSink = std::function<void(const std::string&)>;

// Instructions with their bytes, then each clause with the instructions of its blocks. Nothing for
// bytes that are no method body.
void list_body(std::span<const std::uint8_t> body, const ListingSink& sink);

} // namespace corvane
