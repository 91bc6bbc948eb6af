// The method body format (ECMA-335 II.25.4) between bytes and plain records: header, extra
// sections, exception clauses with their offsets. Each decode function has its encode function;
// encoding supports only the tiny header, the fat header and the fat section. Pure functions over
// the caller's bytes.
#pragma once

#include "il/byte_reader.h"
#include "il/byte_writer.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace corvane {

namespace header_flag {
inline constexpr std::uint16_t kFormatMask = 0x03;
inline constexpr std::uint16_t kTinyFormat = 0x02;
inline constexpr std::uint16_t kFatFormat = 0x03;
inline constexpr std::uint16_t kMoreSects = 0x08;
inline constexpr std::uint16_t kInitLocals = 0x10;
inline constexpr std::uint16_t kCompressedIL = 0x40;
} // namespace header_flag

inline constexpr std::uint32_t kTinyHeaderSize = 1;
inline constexpr std::uint32_t kFatHeaderSize = 12;
inline constexpr std::uint32_t kTinyCodeLimit = 64;
inline constexpr std::uint16_t kTinyMaxStack = 8;

inline constexpr std::uint32_t kSectionAlignment = 4; // counted from the header
[[nodiscard]] constexpr std::size_t aligned_section(std::size_t offset) {
    return (offset + kSectionAlignment - 1) / kSectionAlignment * kSectionAlignment;
}

struct MethodHeader {
    bool tiny = false;
    std::uint16_t flags = 0; // of a fat header, format bits included
    std::uint16_t max_stack = 0;
    std::uint32_t code_size = 0;
    std::uint32_t local_signature = 0;

    [[nodiscard]] std::uint32_t code_offset() const {
        return tiny ? kTinyHeaderSize : kFatHeaderSize;
    }
    [[nodiscard]] bool has_sections() const { return (flags & header_flag::kMoreSects) != 0; }
    [[nodiscard]] std::size_t sections_offset() const {
        return aligned_section(std::size_t{code_offset()} + code_size);
    }
};

// Leaves the reader at the code. Nothing for an unknown format, or if the code does not fit.
[[nodiscard]] std::optional<MethodHeader> decode_header(ByteReader& reader);
void encode_header(ByteWriter& writer, const MethodHeader& header);

namespace section_flag {
inline constexpr std::uint8_t kKindMask = 0x3F;
inline constexpr std::uint8_t kExceptionTable = 0x01;
inline constexpr std::uint8_t kFatFormat = 0x40;
inline constexpr std::uint8_t kMoreSects = 0x80;
} // namespace section_flag

inline constexpr std::uint32_t kSectionHeaderSize = 4;
inline constexpr std::uint32_t kSmallClauseSize = 12;
inline constexpr std::uint32_t kFatClauseSize = 24;
inline constexpr std::uint32_t kMaxClauses = (0xFFFFFF - kSectionHeaderSize) / kFatClauseSize;

struct SectionHeader {
    std::uint8_t flags = 0;
    std::uint32_t data_size = 0; // of the whole section, header included

    [[nodiscard]] bool is_exception_table() const {
        return (flags & section_flag::kKindMask) == section_flag::kExceptionTable;
    }
    [[nodiscard]] bool is_fat() const { return (flags & section_flag::kFatFormat) != 0; }
    [[nodiscard]] bool has_successor() const { return (flags & section_flag::kMoreSects) != 0; }
    // Rounded down: compilers exist that leave the section's header out of its size.
    [[nodiscard]] std::uint32_t clause_count() const {
        return data_size / (is_fat() ? kFatClauseSize : kSmallClauseSize);
    }
};

// The reader stands on a section and is left behind its four header bytes.
[[nodiscard]] std::optional<SectionHeader> decode_section(ByteReader& reader);
// A fat exception table of up to kMaxClauses clauses.
void encode_section(ByteWriter& writer, std::uint32_t clause_count);

enum ClauseKind : std::uint32_t {
    kClauseCatch = 0,
    kClauseFilter = 1,
    kClauseFinally = 2,
    kClauseFault = 4,
};

[[nodiscard]] constexpr bool is_clause_kind(std::uint32_t flags) {
    return flags == kClauseCatch || flags == kClauseFilter || flags == kClauseFinally ||
           flags == kClauseFault;
}

// Offsets and lengths in bytes of code. The fields have the order of their encoding.
struct ClauseRecord {
    std::uint32_t flags = 0;
    std::uint32_t try_offset = 0;
    std::uint32_t try_length = 0;
    std::uint32_t handler_offset = 0;
    std::uint32_t handler_length = 0;
    std::uint32_t token_or_filter = 0; // class token, or offset of the filter
};

[[nodiscard]] std::optional<ClauseRecord> decode_clause(ByteReader& reader, bool fat);
void encode_clause(ByteWriter& writer, const ClauseRecord& clause);

} // namespace corvane
