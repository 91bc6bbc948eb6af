#include "tools/corvane/offline/signature_texts.h"

#include "il/element_type.h"
#include "il/sig_parser.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace corvane::tool {
namespace {

// The first bytes of signatures.
constexpr std::uint8_t kFieldSignature = 0x06;
constexpr std::uint8_t kLocalsSignature = 0x07;

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
    return found == std::end(kNames) ? kUnknownName : found->second;
}

// Collects the texts of the types that stand side by side: result and parameters, locals, or one.
class SignatureReader final : public SigParser {
public:
    explicit SignatureReader(const TypeNames& names) : names_(names) {}

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
                "method " + (type.parts.empty() ? kUnknownName : type.parts[0]) + " *(" +
                joined({type.parts.begin() + (type.parts.empty() ? 0 : 1), type.parts.end()}) + ')';
            break;
        }
        finish(type.text + type.suffix);
    }
    void on_simple_type(std::uint8_t type) override { open_.back().text = simple_name(type); }
    void on_type_def_or_ref(std::uint32_t table, std::uint32_t row) override {
        open_.back().text = names_(table, row);
    }
    void on_generic_inst(std::uint8_t, std::uint32_t table, std::uint32_t row,
                         std::uint32_t) override {
        open_.back().kind = Kind::kInstance;
        open_.back().text = names_(table, row);
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
        suffix_ += names_(table, row) + ')';
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
        siblings.push_back(cut(text.empty() ? kUnknownName : std::move(text)));
    }

    const TypeNames& names_;
    std::vector<OpenType> open_;
    std::string suffix_; // of the next type
};

// Of a blob that begins with that byte, whatever its own first byte is.
std::vector<std::string> read_types(std::uint8_t kind, Blob rest, const TypeNames& names) {
    std::vector<std::uint8_t> blob = {kind};
    blob.insert(blob.end(), rest.begin(), rest.end());
    SignatureReader reader(names);
    const bool is_whole = reader.Parse(blob.data(), static_cast<std::uint32_t>(blob.size()));
    if (!is_whole || reader.texts.empty()) {
        reader.texts.emplace_back(kUnknownName);
    }
    return std::move(reader.texts);
}

} // namespace

SignatureTexts method_texts(Blob signature, const TypeNames& names) {
    SignatureReader reader(names);
    SignatureTexts texts;
    texts.is_whole = !signature.empty() &&
                     reader.Parse(signature.data(), static_cast<std::uint32_t>(signature.size()));
    texts.result = reader.texts.empty() ? kUnknownName : reader.texts[0];
    if (!reader.texts.empty()) {
        texts.parameters.assign(std::make_move_iterator(reader.texts.begin() + 1),
                                std::make_move_iterator(reader.texts.end()));
    }
    if (!texts.is_whole) {
        texts.parameters.emplace_back(kUnknownName);
    }
    return texts;
}

std::vector<std::string> list_texts(Blob rest, const TypeNames& names) {
    return read_types(kLocalsSignature, rest, names);
}

std::string type_text(Blob type, const TypeNames& names) {
    return read_types(kFieldSignature, type, names)[0];
}

std::string cut(std::string text) {
    if (text.size() > kLongestName) {
        std::size_t end = kLongestName;
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

} // namespace corvane::tool
