// The properties of every CIL opcode: text, encoding, operand, control flow, pushes. One list
// (opcodes.def) is expanded into the opcode numbers and into three tables that they index.
// All of it is constant.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace corvane {

enum class Opcode : std::uint16_t {
#define CORVANE_OPCODE(number, name, text, operand, flow, push) k##name = number,
#include "il/opcodes.def"
#undef CORVANE_OPCODE
    // One target of a switch; it stands behind its switch and emits four bytes without an opcode.
    kSwitchTarget = 0x127,
};

inline constexpr std::size_t kOpcodeCount = 294;
inline constexpr std::size_t kOpcodeNumberCount = 304; // with room for the rewriter's own numbers
inline constexpr std::uint16_t kTwoByteOpcodes = 0x100;
inline constexpr std::uint16_t kPseudoOpcodes = 0x123;
inline constexpr std::uint8_t kTwoByteEscape = 0xFE;

enum class OpcodeFlow : std::uint32_t {
    Next,
    Break,
    Call,
    Return,
    Branch,
    CondBranch,
    Throw,
    Meta,
};

// Codes of OpcodeOperandKind: the size in bytes in the low bits, and what the bytes are.
namespace operand_kind {
inline constexpr std::uint8_t kSizeMask = 0x0F;
inline constexpr std::uint8_t kBranchBit = 0x10;
inline constexpr std::uint8_t None = 0x00;
inline constexpr std::uint8_t I1 = 0x01;
inline constexpr std::uint8_t I2 = 0x02;
inline constexpr std::uint8_t I4 = 0x04;
inline constexpr std::uint8_t I8 = 0x08;
inline constexpr std::uint8_t Br1 = kBranchBit | I1;
inline constexpr std::uint8_t Br4 = kBranchBit | I4;
inline constexpr std::uint8_t Switch = 0x20; // a 4-byte count, then 4 bytes for each target
} // namespace operand_kind

struct OpcodeInfo {
    const char* name;
    std::uint8_t byte1; // 0xFF before a one-byte opcode, 0xFE before a two-byte one
    std::uint8_t byte2;
    std::uint32_t length;      // bytes of the opcode itself
    std::uint32_t operandSize; // bytes behind it; of a switch, those of the count only
    OpcodeFlow flow;
};

namespace detail {

constexpr OpcodeInfo opcode_info(std::uint16_t number, const char* name, std::uint8_t operand,
                                 OpcodeFlow flow) {
    const std::uint32_t operand_size =
        operand == operand_kind::Switch ? 4u : operand & operand_kind::kSizeMask;
    if (number >= kPseudoOpcodes) {
        return {name, 0, 0, 0, operand_size, flow};
    }
    const auto low_byte = static_cast<std::uint8_t>(number);
    if (number >= kTwoByteOpcodes) {
        return {name, kTwoByteEscape, low_byte, 2, operand_size, flow};
    }
    return {name, 0xFF, low_byte, 1, operand_size, flow};
}

} // namespace detail

inline constexpr OpcodeInfo OpcodeTable[] = {
#define CORVANE_OPCODE(number, name, text, operand, flow, push)                                    \
    detail::opcode_info(number, text, operand_kind::operand, OpcodeFlow::flow),
#include "il/opcodes.def"
#undef CORVANE_OPCODE
};

inline constexpr std::array<std::uint8_t, kOpcodeNumberCount> OpcodeOperandKind = [] {
    std::array<std::uint8_t, kOpcodeNumberCount> kinds = {
#define CORVANE_OPCODE(number, name, text, operand, flow, push) operand_kind::operand,
#include "il/opcodes.def"
#undef CORVANE_OPCODE
    };
    kinds[static_cast<std::size_t>(Opcode::kSwitchTarget)] = operand_kind::Br4;
    return kinds;
}();

inline constexpr std::int32_t OpcodeStackPush[] = {
#define CORVANE_OPCODE(number, name, text, operand, flow, push) push,
#include "il/opcodes.def"
#undef CORVANE_OPCODE
};

static_assert(std::size(OpcodeTable) == kOpcodeCount);
static_assert(std::size(OpcodeOperandKind) == kOpcodeNumberCount);
static_assert(std::size(OpcodeStackPush) == kOpcodeCount);
static_assert(
    [] {
        std::size_t position = 0;
#define CORVANE_OPCODE(number, name, text, operand, flow, push)                                    \
    if (number != position++) {                                                                    \
        return false;                                                                              \
    }
#include "il/opcodes.def"
#undef CORVANE_OPCODE
        return position == kOpcodeCount;
    }(),
    "an opcode stands in the list where its number says");

constexpr std::uint8_t operand_kind_of(Opcode opcode) {
    return OpcodeOperandKind[static_cast<std::size_t>(opcode)];
}

// Numbers that a code stream can hold. The slots of the prefixes that introduce other opcode pages
// cannot begin an instruction; prefixref, the reserved slots and the pseudo-entries can.
constexpr bool is_code_opcode(std::uint32_t number) {
    return number < kOpcodeCount && !(number >= 0xF8 && number <= kTwoByteEscape);
}

} // namespace corvane
