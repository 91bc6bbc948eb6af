// Decoding and encoding of method headers, sections and clauses, in the order of their bytes.

#include "il/method_format.h"

namespace corvane {

namespace {

constexpr int kHeaderSizeShift = 12; // the top four bits of the flags word count 4-byte words

// The reader has room for all of it.
template <typename Flags, typename Offset, typename Length>
ClauseRecord decode_clause_as(ByteReader& reader) {
    ClauseRecord clause;
    clause.flags = *reader.read<Flags>();
    clause.try_offset = *reader.read<Offset>();
    clause.try_length = *reader.read<Length>();
    clause.handler_offset = *reader.read<Offset>();
    clause.handler_length = *reader.read<Length>();
    clause.token_or_filter = *reader.read<std::uint32_t>();
    return clause;
}

std::optional<MethodHeader> decode_fat_header(ByteReader& reader) {
    if (reader.remaining() < kFatHeaderSize) {
        return std::nullopt;
    }
    MethodHeader header;
    header.flags = *reader.read<std::uint16_t>();
    header.max_stack = *reader.read<std::uint16_t>();
    header.code_size = *reader.read<std::uint32_t>();
    header.local_signature = *reader.read<std::uint32_t>();
    return header.flags >> kHeaderSizeShift == kFatHeaderSize / 4 ? std::optional(header)
                                                                  : std::nullopt;
}

std::optional<MethodHeader> decode_tiny_header(ByteReader& reader) {
    MethodHeader header;
    header.tiny = true;
    header.max_stack = kTinyMaxStack;
    header.code_size = *reader.read<std::uint8_t>() >> 2;
    return header;
}

} // namespace

std::optional<MethodHeader> decode_header(ByteReader& reader) {
    const auto first = ByteReader(reader).read<std::uint8_t>();
    const unsigned format = first.value_or(0) & header_flag::kFormatMask;
    const auto header = format == header_flag::kTinyFormat  ? decode_tiny_header(reader)
                        : format == header_flag::kFatFormat ? decode_fat_header(reader)
                                                            : std::nullopt;
    return header && header->code_size <= reader.remaining() ? header : std::nullopt;
}

void encode_header(ByteWriter& writer, const MethodHeader& header) {
    if (header.tiny) {
        writer.write(static_cast<std::uint8_t>(header.code_size << 2 | header_flag::kTinyFormat));
        return;
    }
    constexpr std::uint16_t kFatHeader = header_flag::kFatFormat | (kFatHeaderSize / 4)
                                                                       << kHeaderSizeShift;
    writer.write(static_cast<std::uint16_t>(kFatHeader | header.flags));
    writer.write(header.max_stack);
    writer.write(header.code_size);
    writer.write(header.local_signature);
}

std::optional<SectionHeader> decode_section(ByteReader& reader) {
    const auto word = reader.read<std::uint32_t>();
    if (!word) {
        return std::nullopt;
    }
    SectionHeader section;
    section.flags = static_cast<std::uint8_t>(*word);
    section.data_size = section.is_fat() ? *word >> 8 : *word >> 8 & 0xFF;
    return section;
}

void encode_section(ByteWriter& writer, std::uint32_t clause_count) {
    constexpr std::uint32_t kFatTable = section_flag::kFatFormat | section_flag::kExceptionTable;
    writer.write((clause_count * kFatClauseSize + kSectionHeaderSize) << 8 | kFatTable);
}

std::optional<ClauseRecord> decode_clause(ByteReader& reader, bool fat) {
    if (reader.remaining() < (fat ? kFatClauseSize : kSmallClauseSize)) {
        return std::nullopt;
    }
    return fat ? decode_clause_as<std::uint32_t, std::uint32_t, std::uint32_t>(reader)
               : decode_clause_as<std::uint16_t, std::uint16_t, std::uint8_t>(reader);
}

void encode_clause(ByteWriter& writer, const ClauseRecord& clause) {
    writer.write(clause.flags);
    writer.write(clause.try_offset);
    writer.write(clause.try_length);
    writer.write(clause.handler_offset);
    writer.write(clause.handler_length);
    writer.write(clause.token_or_filter);
}

} // namespace corvane
