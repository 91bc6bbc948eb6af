#include "tools/corvane/offline/metadata_names.h"

#include "clr/runtime_name.h"
#include "il/element_type.h"
#include "il/sig_parser.h"
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
constexpr const char* kUnknown = "?";

// The first bytes of signatures (ECMA-335 II.23.2).
constexpr std::uint8_t kFieldSignature = 0x06;
constexpr std::uint8_t kLocalsSignature = 0x07;
constexpr std::uint8_t kInstantiation = 0x0A;

std::string cut(std::string text) {
    if (text.size() > MetadataNames::kLongest) {
        std::size_t end = MetadataNames::kLongest;
        while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
            --end; // not within a character
        }
        text.resize(end);
        text += "...";
    }
    return text;
}

std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& part : parts) {
        text += (text.empty() ? "" : ", ") + part;
    }
    return text;
}

std::string_view simple_name(std::uint8_t type) {
    constexpr std::pair<std::uint8_t, std::string_view> kNames[] = {
        {kElementBoolean, "bool"},  {kElementChar, "char"},     {kElementI1, "int8"},
        {kElementU1, "uint8"},      {kElementI2, "int16"},      {kElementU2, "uint16"},
        {kElementI4, "int32"},      {kElementU4, "uint32"},     {kElementI8, "int64"},
        {kElementU8, "uint64"},     {kElementR4, "float32"},    {kElementR8, "float64"},
        {kElementI, "native int"},  {kElementU, "native uint"}, {kElementString, "string"},
        {kElementObject, "object"},
    };
    const auto* const found =
        std::ranges::find(kNames, type, [](const auto& name) { return name.first; });
    return found == std::end(kNames) ? kUnknown : found->second;
}

mdToken type_token_of(std::uint32_t table, std::uint32_t row) {
    constexpr mdToken kTables[] = {mdtTypeDef, mdtTypeRef, mdtTypeSpec, mdtBaseType};
    return kTables[table & 3] | row;
}

// A name that the metadata gives into a buffer: `ask(buffer, capacity, length)`.
template <class Ask>
std::string ask_name(const Ask& ask) {
    std::array<wchar_t, MetadataNames::kLongest> buffer{};
    ULONG length = 0;
    if (FAILED(ask(buffer.data(), static_cast<ULONG>(buffer.size()), &length))) {
        return kUnknown;
    }
    buffer.back() = L'\0';
    return to_utf8(buffer.data());
}

} // namespace

// Collects the texts of the types that stand side by side: result and parameters, locals, or one.
class SignatureReader final : public SigParser {
public:
    explicit SignatureReader(MetadataNames& names) : names_(names) {}

    std::vector<std::string> texts;

protected:
    void on_begin_type() override { open_.push_back({std::exchange(suffix_, {})}); }
    void on_end_type() override {
        OpenType type = std::move(open_.back());
        open_.pop_back();
        switch (type.kind) {
        case Kind::kPlain:
            break;
        case Kind::kInstance:
            type.text.append("<").append(joined(type.parts)).append(">");
            break;
        case Kind::kElement:
            type.text = (type.parts.empty() ? "void" : type.parts[0]) + type.text;
            break;
        case Kind::kFunction:
            type.text =
                "method " + (type.parts.empty() ? kUnknown : type.parts[0]) + " *(" +
                joined({type.parts.begin() + (type.parts.empty() ? 0 : 1), type.parts.end()}) + ')';
            break;
        }
        finish(type.text + type.suffix);
    }
    void on_simple_type(std::uint8_t type) override { open_.back().text = simple_name(type); }
    void on_type_def_or_ref(std::uint32_t table, std::uint32_t row) override {
        open_.back().text = names_.token(type_token_of(table, row));
    }
    void on_generic_inst(std::uint8_t, std::uint32_t table, std::uint32_t row,
                         std::uint32_t) override {
        open_.back().kind = Kind::kInstance;
        open_.back().text = names_.token(type_token_of(table, row));
    }
    void on_type_variable(std::uint32_t number) override {
        open_.back().text = std::string("!").append(std::to_string(number));
    }
    void on_method_variable(std::uint32_t number) override {
        open_.back().text = std::string("!!").append(std::to_string(number));
    }
    void on_pointer(std::uint8_t) override { begin_element("*"); }
    void on_sz_array(std::uint8_t) override { begin_element("[]"); }
    void on_array(std::uint8_t) override { begin_element(""); }
    void on_rank(std::uint32_t rank) override {
        const std::uint32_t commas = std::clamp(rank, 1U, 32U) - 1;
        open_.back().text = std::string("[").append(commas, ',').append("]");
    }
    void on_function_pointer(std::uint8_t) override { open_.back().kind = Kind::kFunction; }
    void on_void() override {
        if (open_.empty() || open_.back().kind == Kind::kFunction) {
            finish("void" + std::exchange(suffix_, {}));
        }
    }
    void on_typed_by_ref() override { finish("typedref" + std::exchange(suffix_, {})); }
    void on_by_ref() override { suffix_ += '&'; }
    void on_constraint(std::uint8_t) override { suffix_ += " pinned"; }
    void on_custom_modifier(std::uint8_t type, std::uint32_t table, std::uint32_t row) override {
        suffix_ += type == kElementCModReqd ? " modreq(" : " modopt(";
        suffix_ += names_.token(type_token_of(table, row)) + ')';
    }
    void on_sentinel() override { finish("..."); }

private:
    enum class Kind { kPlain, kInstance, kElement, kFunction };
    struct OpenType {
        std::string suffix; // what stood in front of it in the blob
        std::string text{};
        Kind kind = Kind::kPlain;
        std::vector<std::string> parts{}; // types within it
    };

    void begin_element(std::string behind) {
        open_.back().kind = Kind::kElement;
        open_.back().text = std::move(behind);
    }

    void finish(std::string text) {
        auto& siblings = open_.empty() ? texts : open_.back().parts;
        siblings.push_back(cut(text.empty() ? kUnknown : std::move(text)));
    }

    MetadataNames& names_;
    std::vector<OpenType> open_;
    std::string suffix_; // of the next type
};

namespace {

// Of a blob that begins with that byte, whatever its own first byte is.
std::vector<std::string> read_types(MetadataNames& names, std::uint8_t kind,
                                    MetadataNames::Blob rest) {
    std::vector<std::uint8_t> blob = {kind};
    blob.insert(blob.end(), rest.begin(), rest.end());
    SignatureReader reader(names);
    const bool is_whole = reader.Parse(blob.data(), static_cast<std::uint32_t>(blob.size()));
    if (!is_whole || reader.texts.empty()) {
        reader.texts.emplace_back(kUnknown);
    }
    return std::move(reader.texts);
}

} // namespace

const std::string& MetadataNames::token(mdToken token) {
    const auto found = known_.find(token);
    if (found != known_.end()) {
        return found->second;
    }
    static const std::string too_deep = kUnknown;
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
        return kUnknown;
    }
    PCCOR_SIGNATURE blob = nullptr;
    ULONG size = 0;
    mdToken parent = mdTokenNil;
    switch (TypeFromToken(token)) {
    case mdtTypeDef: {
        const std::wstring name = full_type_name(metadata_, token);
        return name.empty() ? kUnknown : to_utf8(name);
    }
    case mdtTypeRef:
        return type_reference(token);
    case mdtTypeSpec:
        return SUCCEEDED(metadata_.GetTypeSpecFromToken(token, &blob, &size))
                   ? type_of_blob({blob, size})
                   : kUnknown;
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
            return kUnknown;
        }
        std::string arguments = "<";
        arguments += joined(read_types(*this, kLocalsSignature, {blob + 1, size - 1})) + '>';
        std::string text = this->token(parent);
        const std::size_t name = text.find("::");
        return text.insert(std::min(text.find('(', name == text.npos ? 0 : name), text.size()),
                           arguments);
    }
    case mdtSignature:
        if (FAILED(metadata_.GetSigFromToken(token, &blob, &size))) {
            return kUnknown;
        }
        return member({}, "*", {blob, size});
    case mdtString:
        return literal(token);
    case mdtModuleRef:
        return ask_name([&](wchar_t* text, ULONG capacity, ULONG* length) {
            return metadata_.GetModuleRefProps(token, text, capacity, length);
        });
    default:
        return kUnknown;
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
        return type_of_blob(signature.subspan(1)) + ' ' + parent + name;
    }
    const SignatureTexts texts = method_signature(signature);
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

SignatureTexts MetadataNames::method_signature(Blob signature) {
    SignatureReader reader(*this);
    SignatureTexts texts;
    texts.is_whole = !signature.empty() &&
                     reader.Parse(signature.data(), static_cast<std::uint32_t>(signature.size()));
    texts.result = reader.texts.empty() ? kUnknown : reader.texts[0];
    if (!reader.texts.empty()) {
        texts.parameters.assign(std::make_move_iterator(reader.texts.begin() + 1),
                                std::make_move_iterator(reader.texts.end()));
    }
    if (!texts.is_whole) {
        texts.parameters.emplace_back(kUnknown);
    }
    return texts;
}

std::vector<std::string> MetadataNames::locals(mdSignature token) {
    PCCOR_SIGNATURE blob = nullptr;
    ULONG size = 0;
    if (RidFromToken(token) == 0 || !metadata_.IsValidToken(token) ||
        FAILED(metadata_.GetSigFromToken(token, &blob, &size)) || size == 0 ||
        blob[0] != kLocalsSignature) {
        return {kUnknown};
    }
    return read_types(*this, kLocalsSignature, {blob + 1, size - 1});
}

std::string MetadataNames::type_of_blob(Blob type) {
    return read_types(*this, kFieldSignature, type)[0];
}

std::string MetadataNames::literal(mdToken token) {
    constexpr std::size_t kMost = 80; // characters of a text; the rest is not what identifies it
    ULONG length = 0;
    if (FAILED(metadata_.GetUserString(token, nullptr, 0, &length))) {
        return kUnknown;
    }
    std::wstring text(std::min<std::size_t>(length, kMost), L'\0');
    if (!text.empty() && FAILED(metadata_.GetUserString(
                             token, text.data(), static_cast<ULONG>(text.size()), &length))) {
        return kUnknown;
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
