#include "tests/support/il_text.h"

#include "clr/com_ptr.h"
#include "il/byte_reader.h"
#include "il/element_type.h"
#include "rewrite/body/body_reader.h"

#include <array>
#include <cstdio>
#include <map>
#include <optional>
#include <stdexcept>

namespace corvane::testing {

namespace {

using Bytes = std::span<const std::uint8_t>;

std::string narrow(const wchar_t* text) {
    std::string result;
    for (; *text != L'\0'; ++text) {
        result += static_cast<char>(*text);
    }
    return result;
}

std::string hex(std::uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

class Names {
public:
    explicit Names(IMetaDataImport& metadata) : metadata_(metadata) {}

    std::string token(mdToken token) {
        std::array<wchar_t, 400> name{};
        ULONG length = 0;
        switch (TypeFromToken(token)) {
        case mdtTypeRef:
            metadata_.GetTypeRefProps(token, nullptr, name.data(), 400, &length);
            return narrow(name.data());
        case mdtTypeDef:
            metadata_.GetTypeDefProps(token, name.data(), 400, &length, nullptr, nullptr);
            return narrow(name.data());
        case mdtTypeSpec: {
            PCCOR_SIGNATURE blob = nullptr;
            ULONG size = 0;
            metadata_.GetTypeSpecFromToken(token, &blob, &size);
            ByteReader reader(blob, blob + size);
            return type(reader);
        }
        case mdtMemberRef: {
            mdToken parent = mdTokenNil;
            metadata_.GetMemberRefProps(token, &parent, name.data(), 400, &length, nullptr,
                                        nullptr);
            const std::string member = narrow(name.data());
            return this->token(parent) + "::" + member;
        }
        case mdtMethodSpec: {
            ComPtr<IMetaDataImport2> import2;
            check(SUCCEEDED(
                metadata_.QueryInterface(__uuidof(IMetaDataImport2), import2.put_void())));
            mdToken method = mdTokenNil;
            PCCOR_SIGNATURE blob = nullptr;
            ULONG size = 0;
            import2->GetMethodSpecProps(token, &method, &blob, &size);
            ByteReader reader(blob, blob + size);
            check(reader.read<std::uint8_t>() == 0x0A && reader.read_compressed() == 1U);
            return this->token(method) + '<' + type(reader) + '>';
        }
        case mdtString:
            metadata_.GetUserString(token, name.data(), 399, &length);
            return '"' + narrow(name.data()) + '"';
        default:
            return hex(token);
        }
    }

    std::string locals(mdSignature token) {
        PCCOR_SIGNATURE blob = nullptr;
        ULONG size = 0;
        metadata_.GetSigFromToken(token, &blob, &size);
        ByteReader reader(blob, blob + size);
        check(reader.read<std::uint8_t>() == 0x07);
        const std::uint32_t count = checked(reader.read_compressed());
        std::string text;
        for (std::uint32_t i = 0; i < count; ++i) {
            text += "  " + std::to_string(i) + ' ' + type(reader) + '\n';
        }
        check(reader.remaining() == 0);
        return text;
    }

private:
    static void check(bool good) {
        if (!good) {
            throw std::runtime_error("no signature");
        }
    }

    template <class T>
    static T checked(std::optional<T> value) {
        check(value.has_value());
        return *value;
    }

    std::string coded_token(ByteReader& reader) {
        constexpr mdToken kTables[] = {mdtTypeDef, mdtTypeRef, mdtTypeSpec, mdtBaseType};
        const std::uint32_t coded = checked(reader.read_compressed());
        return token(kTables[coded & 3] | coded >> 2);
    }

    std::string type(ByteReader& reader) {
        static const std::map<std::uint8_t, const char*> kSimple = {
            {kElementBoolean, "bool"},  {kElementChar, "char"},     {kElementI1, "int8"},
            {kElementU1, "uint8"},      {kElementI2, "int16"},      {kElementU2, "uint16"},
            {kElementI4, "int32"},      {kElementU4, "uint32"},     {kElementI8, "int64"},
            {kElementU8, "uint64"},     {kElementR4, "float32"},    {kElementR8, "float64"},
            {kElementI, "native int"},  {kElementU, "native uint"}, {kElementString, "string"},
            {kElementObject, "object"},
        };
        const auto element = checked(reader.read<std::uint8_t>());
        if (const auto simple = kSimple.find(element); simple != kSimple.end()) {
            return simple->second;
        }
        switch (element) {
        case kElementClass:
            return "class " + coded_token(reader);
        case kElementValueType:
            return "valuetype " + coded_token(reader);
        case kElementSzArray:
            return type(reader) + "[]";
        case kElementVar:
            return '!' + std::to_string(checked(reader.read_compressed()));
        case kElementGenericInst: {
            std::string text = type(reader) + '<';
            const std::uint32_t count = checked(reader.read_compressed());
            for (std::uint32_t i = 0; i < count; ++i) {
                text += (i == 0 ? "" : ", ") + type(reader);
            }
            return text + '>';
        }
        default:
            throw std::runtime_error("no type that a test has");
        }
    }

    IMetaDataImport& metadata_;
};

bool has_token(Opcode opcode) {
    switch (opcode) {
    case Opcode::kCall:
    case Opcode::kCallvirt:
    case Opcode::kNewobj:
    case Opcode::kNewarr:
    case Opcode::kLdstr:
    case Opcode::kLdobj:
    case Opcode::kBox:
    case Opcode::kUnboxAny:
    case Opcode::kCastclass:
    case Opcode::kIsinst:
        return true;
    default:
        return false;
    }
}

std::string operand(const Instruction& instruction, Names& names) {
    if (instruction.is_branch()) {
        return " -> " + std::to_string(instruction.target->offset);
    }
    if (operand_kind_of(instruction.opcode) == operand_kind::None) {
        return {};
    }
    return ' ' + (has_token(instruction.opcode)
                      ? names.token(static_cast<mdToken>(instruction.immediate))
                      : std::to_string(instruction.immediate));
}

std::string clause_text(const ExceptionClause& clause, Names& names) {
    const auto range = [](const Instruction* first, const Instruction* end) {
        return std::to_string(first->offset) + " to " + std::to_string(end->offset);
    };
    const char* const kind = clause.flags == kClauseCatch     ? "catch "
                             : clause.flags == kClauseFinally ? "finally"
                             : clause.flags == kClauseFault   ? "fault"
                                                              : "filter ";
    const std::string what = clause.flags == kClauseCatch ? names.token(clause.class_token)
                             : clause.flags == kClauseFilter
                                 ? std::to_string(clause.filter_first->offset)
                                 : "";
    return "try " + range(clause.try_first, clause.try_end) + ' ' + kind + what + ' ' +
           range(clause.handler_first, *clause.handler_end) + '\n';
}

} // namespace

std::string il_text(Bytes bytes, IMetaDataImport& metadata) {
    MethodBody body;
    if (read_body(bytes, body) != BodyResult::kOk) {
        throw std::runtime_error("no body");
    }
    Names names(metadata);
    // The reader adds the pushes; the header's own value is what was written.
    std::string text = "max stack " + std::to_string(bytes[2] | bytes[3] << 8) +
                       (body.init_locals ? ", init locals" : "") + '\n';
    if (body.local_signature != 0) {
        text += "locals\n" + names.locals(body.local_signature);
    }
    std::uint32_t number = 0;
    for (Instruction& instruction : body) {
        instruction.offset = number++; // numbers serve as offsets here
    }
    body.sentinel()->offset = number;
    for (const Instruction& instruction : body) {
        char line[16];
        std::snprintf(line, sizeof line, "%4u ", instruction.offset);
        text += line;
        text += OpcodeTable[static_cast<std::size_t>(instruction.opcode)].name +
                operand(instruction, names) + '\n';
    }
    for (const ExceptionClause& clause : body.clauses) {
        text += clause_text(clause, names);
    }
    return text;
}

} // namespace corvane::testing
