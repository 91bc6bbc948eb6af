#include "tools/corvane/offline/metadata_names.h"

#include "clr/runtime_name.h"
#include "selection/full_name.h"
#include "tools/corvane/utf8.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <utility>

namespace corvane::tool {

namespace {

constexpr unsigned kDeepest = 32; // of tokens that name each other

// The first bytes of signatures (ECMA-335 II.23.2).
constexpr std::uint8_t kFieldSignature = 0x06;
constexpr std::uint8_t kLocalsSignature = 0x07;
constexpr std::uint8_t kInstantiation = 0x0A;

mdToken type_token_of(std::uint32_t table, std::uint32_t row) {
    constexpr mdToken kTables[] = {mdtTypeDef, mdtTypeRef, mdtTypeSpec, mdtBaseType};
    return kTables[table & 3] | row;
}

// A name that the metadata gives into a buffer: `ask(buffer, capacity, length)`.
template <class Ask>
std::string ask_name(const Ask& ask) {
    std::array<wchar_t, kLongestName> buffer{};
    ULONG length = 0;
    if (FAILED(ask(buffer.data(), static_cast<ULONG>(buffer.size()), &length))) {
        return kUnknownName;
    }
    buffer.back() = L'\0';
    return to_utf8(buffer.data());
}

} // namespace

const std::string& MetadataNames::token(mdToken token) {
    const auto found = known_.find(token);
    if (found != known_.end()) {
        return found->second;
    }
    static const std::string too_deep = kUnknownName;
    if (depth_ == kDeepest) {
        return too_deep;
    }
    ++depth_;
    std::string text = cut(make(token));
    --depth_;
    return known_[token] = std::move(text);
}

std::string MetadataNames::make(mdToken token) {
    if (RidFromToken(token) == 0 || !metadata_.IsValidToken(token)) {
        return kUnknownName;
    }
    PCCOR_SIGNATURE blob = nullptr;
    ULONG size = 0;
    mdToken parent = mdTokenNil;
    switch (TypeFromToken(token)) {
    case mdtTypeDef: {
        const std::wstring name = full_type_name(metadata_, token);
        return name.empty() ? kUnknownName : to_utf8(name);
    }
    case mdtTypeRef:
        return type_reference(token);
    case mdtTypeSpec:
        return SUCCEEDED(metadata_.GetTypeSpecFromToken(token, &blob, &size))
                   ? type_text({blob, size}, type_names())
                   : kUnknownName;
    case mdtMethodDef:
        return method(token, true);
    case mdtFieldDef: {
        const std::string name = ask_name([&](wchar_t* text, ULONG capacity, ULONG* length) {
            return metadata_.GetFieldProps(token, &parent, text, capacity, length, nullptr, &blob,
                                           &size, nullptr, nullptr, nullptr);
        });
        return member(this->token(parent), name, {blob, size});
    }
    case mdtMemberRef: {
        const std::string name = ask_name([&](wchar_t* text, ULONG capacity, ULONG* length) {
            return metadata_.GetMemberRefProps(token, &parent, text, capacity, length, &blob,
                                               &size);
        });
        return member(this->token(parent), name, {blob, size});
    }
    case mdtMethodSpec: {
        ComPtr<IMetaDataImport2> import2;
        if (FAILED(metadata_.QueryInterface(__uuidof(IMetaDataImport2), import2.put_void())) ||
            FAILED(import2->GetMethodSpecProps(token, &parent, &blob, &size)) || size == 0 ||
            blob[0] != kInstantiation) {
            return kUnknownName;
        }
        std::string arguments = "<";
        arguments += joined(list_texts({blob + 1, size - 1}, type_names())) + '>';
        std::string text = this->token(parent);
        const std::size_t name = text.find("::");
        return text.insert(std::min(text.find('(', name == text.npos ? 0 : name), text.size()),
                           arguments);
    }
    case mdtSignature:
        if (FAILED(metadata_.GetSigFromToken(token, &blob, &size))) {
            return kUnknownName;
        }
        return member({}, "*", {blob, size});
    case mdtString:
        return literal(token);
    case mdtModuleRef:
        return ask_name([&](wchar_t* text, ULONG capacity, ULONG* length) {
            return metadata_.GetModuleRefProps(token, text, capacity, length);
        });
    default:
        return kUnknownName;
    }
}

// The type that it is nested in stands in front of it.
std::string MetadataNames::type_reference(mdToken token) {
    mdToken scope = mdTokenNil;
    const std::string name = ask_name([&](wchar_t* text, ULONG capacity, ULONG* length) {
        return metadata_.GetTypeRefProps(token, &scope, text, capacity, length);
    });
    return TypeFromToken(scope) == mdtTypeRef && RidFromToken(scope) != 0
               ? this->token(scope) + '+' + name
               : name;
}

std::string MetadataNames::member(std::string parent, const std::string& name, Blob signature) {
    if (!parent.empty()) {
        parent += "::";
    }
    if (!signature.empty() && signature[0] == kFieldSignature) {
        return type_text(signature.subspan(1), type_names()) + ' ' + parent + name;
    }
    const SignatureTexts texts = method_texts(signature, type_names());
    return texts.result + ' ' + parent + name + '(' + joined(texts.parameters) + ')';
}

std::string MetadataNames::method(mdMethodDef method, bool with_type) {
    mdTypeDef type = mdTypeDefNil;
    PCCOR_SIGNATURE blob = nullptr;
    ULONG size = 0;
    const std::string name = ask_name([&](wchar_t* text, ULONG capacity, ULONG* length) {
        return metadata_.GetMethodProps(method, &type, text, capacity, length, nullptr, &blob,
                                        &size, nullptr, nullptr);
    });
    return member(with_type ? token(type) : std::string(), name, {blob, size});
}

const std::string& MetadataNames::type_of_method(mdMethodDef method) {
    mdTypeDef type = mdTypeDefNil;
    metadata_.GetMethodProps(method, &type, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr);
    return token(type);
}

std::string MetadataNames::full_method_name(mdMethodDef method) {
    mdTypeDef type = mdTypeDefNil;
    const std::string name = ask_name([&](wchar_t* text, ULONG capacity, ULONG* length) {
        return metadata_.GetMethodProps(method, &type, text, capacity, length, nullptr, nullptr,
                                        nullptr, nullptr, nullptr);
    });
    return token(type) + '.' + name;
}

std::vector<std::string> MetadataNames::locals(mdSignature token) {
    PCCOR_SIGNATURE blob = nullptr;
    ULONG size = 0;
    if (RidFromToken(token) == 0 || !metadata_.IsValidToken(token) ||
        FAILED(metadata_.GetSigFromToken(token, &blob, &size)) || size == 0 ||
        blob[0] != kLocalsSignature) {
        return {kUnknownName};
    }
    return list_texts({blob + 1, size - 1}, type_names());
}

TypeNames MetadataNames::type_names() {
    return
        [this](std::uint32_t table, std::uint32_t row) { return token(type_token_of(table, row)); };
}

std::string MetadataNames::literal(mdToken token) {
    constexpr std::size_t kMost = 80; // characters of a text; the rest is not what identifies it
    ULONG length = 0;
    if (FAILED(metadata_.GetUserString(token, nullptr, 0, &length))) {
        return kUnknownName;
    }
    std::wstring text(std::min<std::size_t>(length, kMost), L'\0');
    if (!text.empty() && FAILED(metadata_.GetUserString(
                             token, text.data(), static_cast<ULONG>(text.size()), &length))) {
        return kUnknownName;
    }
    const bool is_cut = length > kMost;
    text.resize(is_cut ? kMost - 1 : text.size()); // what was cut ends with a terminator
    std::wstring shown;
    for (const wchar_t c : text) {
        if (c == L'"' || c == L'\\') {
            (shown += L'\\') += c;
        } else if (c < L' ' || c == 0x7F) {
            wchar_t escaped[8] = {};
            std::swprintf(escaped, std::size(escaped), L"\\x%02x", static_cast<unsigned>(c));
            shown += escaped;
        } else {
            shown += c;
        }
    }
    std::string quoted = "\"";
    return quoted.append(to_utf8(shown)).append(is_cut ? "\"..." : "\"");
}

} // namespace corvane::tool
