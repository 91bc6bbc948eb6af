// The texts of the body dump and of the listing. Header and clauses come from method_format.h. A
// part that is truncated or points outside the body is shown as far as possible.

#include "il/listing.h"

#include "il/method_format.h"
#include "il/opcode_table.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace corvane {

namespace {

using Bytes = std::span<const std::uint8_t>;

template <typename... Arguments>
std::string format(const char* text, Arguments... arguments) {
    char buffer[128];
    static_cast<void>(std::snprintf(buffer, sizeof buffer, text, arguments...));
    return buffer;
}

std::string hex_list(Bytes bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 5);
    for (const std::uint8_t byte : bytes) {
        if (!text.empty()) {
            text += ',';
        }
        text += "0x";
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

Bytes clipped(Bytes bytes, std::size_t offset, std::size_t size) {
    const Bytes rest = bytes.subspan(std::min(offset, bytes.size()));
    return rest.first(std::min(size, rest.size()));
}

struct ExceptionTables {
    bool present = false;
    std::vector<ClauseRecord> clauses; // of all tables, as many as are whole
};

ExceptionTables exception_tables(Bytes body, const MethodHeader& header) {
    ExceptionTables tables;
    std::size_t offset = header.sections_offset();
    bool more = header.has_sections();
    while (more) {
        ByteReader reader(clipped(body, offset, body.size()));
        const auto section = decode_section(reader);
        if (!section) {
            break;
        }
        if (section->is_exception_table()) {
            tables.present = true;
            for (std::uint32_t left = section->clause_count(); left != 0; --left) {
                const auto clause = decode_clause(reader, section->is_fat());
                if (!clause) {
                    break;
                }
                tables.clauses.push_back(*clause);
            }
        }
        // A section that claims to be smaller than its header would never end.
        offset = aligned_section(offset + std::max(section->data_size, kSectionHeaderSize));
        more = section->has_successor();
    }
    return tables;
}

std::string header_text(const MethodHeader& header) {
    if (header.tiny) {
        return format("TINY (type: %u, size: %u)\n    ", unsigned{header_flag::kTinyFormat},
                      header.code_size);
    }
    const unsigned flags = header.flags & 0xFFFu;
    std::string text = format("FAT (code size: %u, flags: %u (", header.code_size, flags);
    if ((flags & header_flag::kCompressedIL) != 0) {
        text += "CorILMethod_CompressedIL | ";
    }
    if ((flags & header_flag::kInitLocals) != 0) {
        text += "CorILMethod_InitLocals | ";
    }
    if ((flags & header_flag::kMoreSects) != 0) {
        text += "CorILMethod_MoreSects | ";
    }
    return text + format("), max stack: %u, signature token: %u)\n    ", unsigned{header.max_stack},
                         header.local_signature);
}

struct ClauseHeadings {
    std::uint32_t flags;
    const char* dump;
    const char* listing;
};

// The listing calls every clause small, whatever its format.
constexpr ClauseHeadings kClauseHeadings[] = {
    {kClauseCatch, "CATCH:\n", " small CATCH clause:\n"},
    {kClauseFilter, "FILTER:\n", " small FILTER clause:\n"},
    {kClauseFinally, "FINALLY:\n", " small FINALLY clause:\n"},
    {kClauseFault, "FAULT:\n", " small FAULT clause:\n"},
};

const ClauseHeadings* headings_of(const ClauseRecord& clause) {
    const auto found = std::find_if(
        std::begin(kClauseHeadings), std::end(kClauseHeadings),
        [&clause](const ClauseHeadings& headings) { return headings.flags == clause.flags; });
    return found == std::end(kClauseHeadings) ? nullptr : found;
}

std::string clause_text(const ClauseRecord& clause) {
    const ClauseHeadings* const headings = headings_of(clause);
    return std::string("    ") + (headings == nullptr ? "" : headings->dump) +
           format("      .try   {@%u %u bytes}\n", clause.try_offset, clause.try_length) +
           format("      .catch {@%u %u bytes}\n", clause.handler_offset, clause.handler_length);
}

// Calls visit(offset from the start, opcode, instruction bytes). The last instruction may reach
// beyond the size, but not beyond the body.
template <typename Visitor>
void walk(Bytes body, std::size_t start, std::size_t size, Visitor visit) {
    size = clipped(body, start, size).size();
    for (std::size_t offset = 0; offset < size;) {
        const OpcodeInfo& opcode = OpcodeTable[body[start + offset]];
        const std::size_t length = opcode.length + opcode.operandSize;
        visit(static_cast<unsigned>(offset), opcode, clipped(body, start + offset, length));
        offset += length;
    }
}

void list_block(Bytes body, std::size_t start, std::size_t size, const ListingSink& sink) {
    walk(body, start, size, [&sink](unsigned offset, const OpcodeInfo& opcode, Bytes) {
        sink(format(" IL_%04x: %s", offset, opcode.name));
    });
}

void list_clause(Bytes body, std::size_t code, const ClauseRecord& clause,
                 const ListingSink& sink) {
    if (const ClauseHeadings* const headings = headings_of(clause)) {
        sink(headings->listing);
    }
    sink(" .try");
    list_block(body, code + clause.try_offset, clause.try_length, sink);
    sink(" .catch");
    list_block(body, code + clause.handler_offset, clause.handler_length, sink);
}

} // namespace

std::wstring dumpBody(const std::uint8_t* body, std::uint32_t length) {
    const Bytes bytes(body, length);
    std::string text = format("(%u bytes)\n    ", length) + hex_list(bytes) + "\n    ";
    ByteReader reader(bytes);
    if (const auto header = decode_header(reader)) {
        text += "Header type: " + header_text(*header);
        text += format("Code section (%u bytes): ", header->code_size);
        text += hex_list(bytes.subspan(header->code_offset(), header->code_size)) + "\n";
        const std::uint32_t excess = header->code_size % kSectionAlignment;
        if (!header->tiny && excess != 0) {
            // Padding is shown as zeros, whatever it holds.
            const std::vector<std::uint8_t> padding(kSectionAlignment - excess);
            text += format("    Code section padded by %u bytes: ", kSectionAlignment - excess);
            text += hex_list(padding) + "\n";
        }
        for (const ClauseRecord& clause : exception_tables(bytes, *header).clauses) {
            text += clause_text(clause);
        }
    }
    return {text.begin(), text.end()};
}

void list_body(std::span<const std::uint8_t> body, const ListingSink& sink) {
    ByteReader reader(body);
    const auto header = decode_header(reader);
    if (!header) {
        return;
    }
    const std::size_t code = header->code_offset();
    sink("Code section:\n");
    walk(body, code, header->code_size,
         [&sink](unsigned offset, const OpcodeInfo& opcode, Bytes bytes) {
             sink(format(" IL_%04x: %s \t\t %s\n", offset, opcode.name, hex_list(bytes).c_str()));
         });
    sink("Exception handling section:\n");
    const ExceptionTables tables = exception_tables(body, *header);
    if (!tables.present) {
        sink("<empty>");
        return;
    }
    for (const ClauseRecord& clause : tables.clauses) {
        list_clause(body, code, clause, sink);
    }
}

} // namespace corvane
