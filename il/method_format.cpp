// Decoding and encoding of method headers, sections and clauses, in the order of their bytes.

#include "il/method_format.h"

namespace corvane {

namespace {

constexpr int kHeaderSizeShift = 12; // the top four bits of the flags word count 4-byte words

template <typename Offset, typename Length>
bool decode_range(ByteReader& reader, std::uint32_t& offset, std::uint32_t& length) {
    Offset raw_offset = 0;
    Length raw_length = 0;
    if (!reader.read(raw_offset) || !reader.read(raw_length)) {
        return false;
    }
    offset = raw_offset;
    length = raw_length;
    return true;
}

} // namespace

bool decode_header(ByteReader& reader, MethodHeader& header) {
    header = {};
    std::uint8_t first = 0;
    if (!ByteReader(reader).read(first)) {
        return false;
    }
    switch (first & header_flag::kFormatMask) {
    case header_flag::kTinyFormat:
        header.tiny = true;
        header.max_stack = kTinyMaxStack;
        header.code_size = first >> 2;
        return reader.skip(kTinyHeaderSize) && header.code_size <= reader.remaining();
    case header_flag::kFatFormat:
        if (!reader.read(header.flags) || !reader.read(header.max_stack) ||
            !reader.read(header.code_size) || !reader.read(header.local_signature)) {
            return false;
        }
        return header.flags >> kHeaderSizeShift == kFatHeaderSize / 4 &&
               header.code_size <= reader.remaining();
    default:
        return false;
    }
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

bool decode_section(ByteReader& reader, SectionHeader& section) {
    std::uint32_t word = 0;
    if (!reader.read(word)) {
        return false;
    }
    section.flags = static_cast<std::uint8_t>(word);
    section.data_size = section.is_fat() ? word >> 8 : word >> 8 & 0xFF;
    return true;
}

void encode_section(ByteWriter& writer, std::uint32_t clause_count) {
    constexpr std::uint32_t kFatTable = section_flag::kFatFormat | section_flag::kExceptionTable;
    writer.write((clause_count * kFatClauseSize + kSectionHeaderSize) << 8 | kFatTable);
}

bool decode_clause(ByteReader& reader, bool fat, ClauseRecord& clause) {
    if (fat) {
        return reader.read(clause.flags) &&
               decode_range<std::uint32_t, std::uint32_t>(reader, clause.try_offset,
                                                          clause.try_length) &&
               decode_range<std::uint32_t, std::uint32_t>(reader, clause.handler_offset,
                                                          clause.handler_length) &&
               reader.read(clause.token_or_filter);
    }
    std::uint16_t flags = 0;
    if (!reader.read(flags)) {
        return false;
    }
    clause.flags = flags;
    return decode_range<std::uint16_t, std::uint8_t>(reader, clause.try_offset,
                                                     clause.try_length) &&
           decode_range<std::uint16_t, std::uint8_t>(reader, clause.handler_offset,
                                                     clause.handler_length) &&
           reader.read(clause.token_or_filter);
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
