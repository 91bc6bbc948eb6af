// SigParser over every signature of every assembly of a real runtime. The blobs come from the
// runtime's own metadata engine; what they say comes from System.Reflection.Metadata
// (tests/tools/sig_reader.cs lists it at build time, and explains the listing's form). Where the
// parser's rules differ from that reading, Expectation names the rule and says exactly what the
// parser has to make of the signature instead.
#include "clr/com_ptr.h"
#include "il/element_type.h"
#include "il/sig_parser.h"

#include <windows.h>

#include <cor.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <vector>

namespace corvane {
namespace {

std::uint32_t hex(const std::string& text) {
    return static_cast<std::uint32_t>(std::stoul(text, nullptr, 16));
}

void append_word(std::string& list, const std::string& item) {
    if (!list.empty()) {
        list += ' ';
    }
    list += item;
}

// What a parser made of one signature. Of a type every field of the summary, with the instantiation
// by its place in the blob.
struct Type {
    std::uint32_t by_ref = 0;
    std::uint32_t generic = 0;
    std::uint32_t array = 0;
    std::uint32_t generic_kind = 0;
    std::int64_t generic_start = -1; // none
    std::uint32_t generic_length = 0;
    std::uint32_t element = 0;
    std::uint32_t row = 0;
    std::uint32_t table = 0;
    bool operator==(const Type&) const = default;
};
struct Outcome {
    bool parsed = true;
    bool to_the_end = true;
    std::string elements; // those that it reported, in the form of the listing
    std::uint32_t has_this = 0;
    Type returned;
    std::vector<Type> params;
    bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Type& type) {
    out << std::string(type.by_ref, '&') << type.element << ' ' << type.table << ':' << type.row
        << (type.array != 0 ? " array" : "");
    return type.generic == 0 && type.generic_start < 0 ? out
                                                       : out << " inst " << type.generic_kind << '@'
                                                             << type.generic_start << '+'
                                                             << type.generic_length;
}
std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    out << (outcome.parsed ? "parsed" : "refused")
        << (outcome.to_the_end ? " to the end: " : " in part: ") << outcome.elements << " -> this "
        << outcome.has_this << ' ' << outcome.returned;
    for (const Type& param : outcome.params) {
        out << ", " << param;
    }
    return out;
}

// Writes what the hooks report in the form of the listing.
class Lister : public SigParser {
public:
    std::string text;
    unsigned deepest = 0;

protected:
    void on_begin_method(std::uint8_t convention) override { element("M:" + byte(convention)); }
    void on_param_count(std::uint32_t count) override { element("n:" + std::to_string(count)); }
    void on_generic_param_count(std::uint32_t count) override {
        element("g:" + std::to_string(count));
    }
    void on_sentinel() override { element("41"); }
    void on_begin_field(std::uint8_t kind) override { element("F:" + byte(kind)); }
    void on_begin_locals(std::uint8_t kind) override { element("L:" + byte(kind)); }
    void on_local_count(std::uint32_t count) override { element("n:" + std::to_string(count)); }
    void on_constraint(std::uint8_t type) override { element(byte(type)); }
    void on_begin_property(std::uint8_t kind) override { element("P:" + byte(kind)); }

    void on_rank(std::uint32_t rank) override { element(std::to_string(rank)); }
    void on_size_count(std::uint32_t /*count*/) override { text += ';'; }
    void on_size(std::uint32_t size) override { list_item(size); }
    void on_lower_bound_count(std::uint32_t /*count*/) override { text += ';'; }
    void on_lower_bound(std::uint32_t bound) override { list_item(bound); }

    void on_begin_type() override {
        bare_ = true;
        deepest = std::max(deepest, ++depth_);
    }
    void on_end_type() override {
        --depth_;
        if (bare_) { // a type that no hook speaks of
            element(byte(static_cast<std::uint8_t>(current.elementType)));
        }
    }
    void on_typed_by_ref() override { element("16"); }
    void on_by_ref() override { element("10"); }
    void on_void() override { element("01"); }
    void on_custom_modifier(std::uint8_t type, std::uint32_t table, std::uint32_t row) override {
        element(byte(type) + token(table, row));
    }
    void on_simple_type(std::uint8_t type) override { element(byte(type)); }
    void on_value_type(std::uint8_t type) override { element(byte(type)); }
    void on_class(std::uint8_t type) override { element(byte(type)); }
    void on_type_def_or_ref(std::uint32_t table, std::uint32_t row) override {
        text += token(table, row);
    }
    void on_generic_inst(std::uint8_t kind, std::uint32_t table, std::uint32_t row,
                         std::uint32_t argument_count) override {
        element("15");
        element(byte(kind) + token(table, row));
        element("n:" + std::to_string(argument_count));
    }
    void on_type_variable(std::uint32_t number) override {
        element("13:" + std::to_string(number));
    }
    void on_method_variable(std::uint32_t number) override {
        element("1E:" + std::to_string(number));
    }
    void on_pointer(std::uint8_t type) override { element(byte(type)); }
    void on_function_pointer(std::uint8_t type) override { element(byte(type)); }
    void on_array(std::uint8_t type) override { element(byte(type)); }
    void on_sz_array(std::uint8_t type) override { element(byte(type)); }

private:
    void element(const std::string& value) {
        append_word(text, value);
        bare_ = false;
    }
    void list_item(std::uint32_t value) {
        if (text.back() != ';') {
            text += ',';
        }
        text += std::to_string(value);
    }
    static std::string digits(std::uint32_t value, int width) {
        std::ostringstream out;
        out << std::hex << std::uppercase << std::setfill('0') << std::setw(width) << value;
        return out.str();
    }
    static std::string byte(std::uint8_t value) { return digits(value, 2); }
    static std::string token(std::uint32_t table, std::uint32_t row) {
        constexpr mdToken kTables[] = {mdtTypeDef, mdtTypeRef, mdtTypeSpec, 0};
        std::string colon = ":";
        return colon += digits(kTables[table] | row, 8);
    }

    bool bare_ = false;
    unsigned depth_ = 0;
};

// Works out from a line of the listing what the parser has to make of that signature, and which of
// its rules make that another thing than the line says.
class Expectation {
public:
    explicit Expectation(const std::string& line) {
        std::istringstream words(line);
        for (std::string word; words >> word;) {
            elements_.push_back(word);
        }
        signature();
        outcome.to_the_end = next_ == elements_.size();
    }

    Outcome outcome;
    std::set<std::string> rules;
    std::size_t size = 0; // in bytes, of what the parser has to read

private:
    void signature() {
        const std::uint32_t first = hex(peek().substr(2));
        switch (peek()[0]) {
        case 'M':
            if ((first & 0x0F) > IMAGE_CEE_CS_CALLCONV_VARARG) {
                rules.insert("a call site's unmanaged convention is refused");
                outcome.parsed = false;
                return;
            }
            outcome.has_this = (first & IMAGE_CEE_CS_CALLCONV_HASTHIS) != 0 ? 1 : 0;
            method();
            break;
        case 'F':
            take();
            modifiers();
            if (peek() == "10") {
                rules.insert("a field's by-reference mark is taken for its type");
                take();
            } else {
                type();
            }
            break;
        case 'L':
            take();
            for (auto left = count(); left > 0; --left) {
                type();
            }
            break;
        case 'P':
            rules.insert("a property's last declared parameter stays unread");
            take();
            property();
            break;
        default:
            FAIL() << "not a signature: " << peek();
        }
    }

    void property() {
        const auto types = count();
        modifiers();
        for (auto left = types; left > 0; --left) {
            param();
        }
    }

    void method() {
        take();
        if (peek().starts_with("g:")) {
            take();
        }
        const auto declared = count();
        modifiers();
        if (peek() == "10") {
            rules.insert("a return's by-reference mark is not recorded");
            take();
        }
        const std::uint32_t outermost = element();
        type();
        if (outermost != current_.element) {
            rules.insert("a composed return type is recorded by its last element type");
        }
        outcome.returned = current_;
        for (auto left = declared; left > 0; --left) {
            if (peek() == "41") {
                take();
            }
            param();
            outcome.params.push_back(current_);
        }
    }

    void param() {
        // Its element type and token stay those of the one before until they are read.
        current_ = {.element = current_.element, .row = current_.row, .table = current_.table};
        modifiers();
        if (peek() == "10") {
            current_.by_ref = 1;
            take();
        }
        type();
    }

    void modifiers() {
        while (peek().starts_with("1F:") || peek().starts_with("20:")) {
            take();
        }
    }

    void type() {
        const std::uint32_t kind = element();
        const auto start = static_cast<std::int64_t>(size);
        const std::string word = peek();
        take();
        switch (kind) {
        case kElementPinned:
        case kElementCModReqd:
        case kElementCModOpt:
        case kElementByRef:
            type();
            return;
        default:
            break;
        }
        current_.element = kind;
        switch (kind) {
        case kElementPtr:
            modifiers();
            if (peek() == "01") {
                take();
                break;
            }
            type();
            break;
        case kElementValueType:
        case kElementClass:
            current_.table = tag_of(word);
            current_.row = row_of(word);
            break;
        case kElementSzArray:
            current_.array = 1;
            type();
            break;
        case kElementArray:
            current_.array = 1;
            type();
            take(); // the shape
            break;
        case kElementGenericInst: {
            const std::uint32_t generic_kind = element();
            const auto mark = [&] {
                current_.generic = 1;
                current_.generic_kind = generic_kind;
                current_.generic_start = start;
            };
            mark(); // a function pointer among the arguments sees it
            take(); // the generic type
            for (auto left = count(); left > 0; --left) {
                type();
            }
            mark();
            current_.generic_length =
                static_cast<std::uint32_t>(static_cast<std::int64_t>(size) - start);
            break;
        }
        case kElementFnPtr:
            rules.insert("a function pointer's signature joins the summary");
            method();
            break;
        default:
            break;
        }
    }

    [[nodiscard]] std::string peek() const {
        return next_ < elements_.size() ? elements_[next_] : "";
    }
    [[nodiscard]] std::uint32_t element() const { return hex(peek().substr(0, 2)); }
    unsigned long count() {
        const auto value = std::stoul(peek().substr(2));
        take();
        return value;
    }
    void take() {
        append_word(outcome.elements, peek());
        size += size_of(peek());
        ++next_;
    }

    // "12:01000004": what the token of a type adds to its kind.
    static bool has_token(const std::string& word) { return word.size() == 11 && word[2] == ':'; }
    static std::uint32_t row_of(const std::string& word) {
        return hex(word.substr(3)) & 0x00FFFFFF;
    }
    static std::uint32_t tag_of(const std::string& word) {
        switch (hex(word.substr(3)) & 0xFF000000) {
        case mdtTypeDef:
            return 0;
        case mdtTypeRef:
            return 1;
        default:
            return 2;
        }
    }

    static std::size_t compressed_size(std::uint32_t value) {
        return value < 0x80 ? 1 : value < 0x4000 ? 2 : 4;
    }

    // "2;3,4;0,0": the rank of an array, its sizes and its lower bounds, each list with its length.
    static std::size_t size_of_shape(const std::string& word) {
        std::istringstream fields(word);
        std::string field;
        std::getline(fields, field, ';');
        std::size_t bytes = compressed_size(static_cast<std::uint32_t>(std::stoul(field)));
        for (int list = 0; list < 2; ++list) {
            field.clear();
            std::getline(fields, field, ';');
            std::istringstream numbers(field);
            std::uint32_t count = 0;
            for (std::string number; std::getline(numbers, number, ','); ++count) {
                bytes += compressed_size(static_cast<std::uint32_t>(std::stoul(number)));
            }
            bytes += compressed_size(count);
        }
        return bytes;
    }

    // How many bytes an element of the listing has in the blob.
    static std::size_t size_of(const std::string& word) {
        if (word.find(';') != std::string::npos) {
            return size_of_shape(word);
        }
        if (has_token(word)) {
            return 1 + compressed_size(row_of(word) << 2 | tag_of(word));
        }
        if (word.starts_with("n:") || word.starts_with("g:")) {
            return compressed_size(static_cast<std::uint32_t>(std::stoul(word.substr(2))));
        }
        if (word.starts_with("13:") || word.starts_with("1E:")) {
            return 1 + compressed_size(static_cast<std::uint32_t>(std::stoul(word.substr(3))));
        }
        return 1;
    }

    std::vector<std::string> elements_;
    std::size_t next_ = 0;
    Type current_;
};

Outcome parse(Lister& parser, std::span<const std::uint8_t> blob) {
    Outcome outcome;
    outcome.parsed = parser.Parse(blob.data(), static_cast<std::uint32_t>(blob.size()));
    outcome.to_the_end = parser.cursor == parser.sigEnd;
    outcome.elements = parser.text;
    outcome.has_this = parser.hasThis;
    const auto type = [&](const SigTypeInfo& info) {
        return Type{
            .by_ref = info.isByRef,
            .generic = info.isGenericInst,
            .array = info.isArray,
            .generic_kind = info.genericKind,
            .generic_start =
                info.genericStart != nullptr ? info.genericStart - parser.sigStart : -1,
            .generic_length = info.genericLength,
            .element = info.elementType,
            .row = info.tokenRow,
            .table = info.tokenTable,
        };
    };
    outcome.returned = type(parser.returnType);
    for (const SigTypeInfo& param : parser.params) {
        outcome.params.push_back(type(param));
    }
    return outcome;
}

std::span<const std::uint8_t> blob_of(IMetaDataImport& metadata, mdToken token) {
    PCCOR_SIGNATURE blob = nullptr;
    ULONG length = 0;
    HRESULT result = E_INVALIDARG;
    switch (TypeFromToken(token)) {
    case mdtFieldDef:
        result = metadata.GetFieldProps(token, nullptr, nullptr, 0, nullptr, nullptr, &blob,
                                        &length, nullptr, nullptr, nullptr);
        break;
    case mdtMethodDef:
        result = metadata.GetMethodProps(token, nullptr, nullptr, 0, nullptr, nullptr, &blob,
                                         &length, nullptr, nullptr);
        break;
    case mdtMemberRef:
        result = metadata.GetMemberRefProps(token, nullptr, nullptr, 0, nullptr, &blob, &length);
        break;
    case mdtSignature:
        result = metadata.GetSigFromToken(token, &blob, &length);
        break;
    case mdtProperty:
        result = metadata.GetPropertyProps(token, nullptr, nullptr, 0, nullptr, nullptr, &blob,
                                           &length, nullptr, nullptr, nullptr, nullptr, nullptr,
                                           nullptr, 0, nullptr);
        break;
    default:
        break;
    }
    EXPECT_GE(result, 0) << std::hex << token;
    return {blob, length};
}

// The folder of the newest runtime's assemblies: the one version under
// shared/Microsoft.NETCore.App.
std::filesystem::path runtime_folder(const char* roots) {
    std::filesystem::path versions =
        std::filesystem::absolute(roots) / "10" / "shared" / "Microsoft.NETCore.App";
    return std::filesystem::directory_iterator(versions.make_preferred())->path();
}

using MetaDataGetDispenser = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);

class SigCorpus : public testing::Test {
protected:
    void SetUp() override {
        const char* const roots = std::getenv("CORVANE_DOTNET_ROOTS");
        if (roots == nullptr) {
            GTEST_SKIP() << "CORVANE_DOTNET_ROOTS does not name the folder of the .NET runtimes";
        }
        folder_ = runtime_folder(roots);
        // Never unloaded: the runtime's library does not support it.
        const HMODULE coreclr = LoadLibraryExW((folder_ / "coreclr.dll").c_str(), nullptr,
                                               LOAD_WITH_ALTERED_SEARCH_PATH);
        ASSERT_NE(coreclr, nullptr) << GetLastError();
        const auto get_dispenser = reinterpret_cast<MetaDataGetDispenser>(
            reinterpret_cast<void (*)()>(GetProcAddress(coreclr, "MetaDataGetDispenser")));
        ASSERT_NE(get_dispenser, nullptr);
        ASSERT_EQ(get_dispenser(CLSID_CorMetaDataDispenser, IID_IMetaDataDispenserEx,
                                dispenser_.put_void()),
                  S_OK);
    }

    ComPtr<IMetaDataImport> open(const std::string& file) const {
        ComPtr<IMetaDataImport> metadata;
        dispenser_->OpenScope((folder_ / file).c_str(), ofRead, IID_IMetaDataImport,
                              metadata.put_unknown());
        return metadata;
    }

    std::filesystem::path folder_;
    ComPtr<IMetaDataDispenserEx> dispenser_;
};

TEST_F(SigCorpus, AgreesWithAnIndependentReader) {
    std::ifstream listing(CORVANE_SIGNATURES);
    ASSERT_TRUE(listing);

    std::string assembly;
    std::set<std::string> assemblies;
    std::map<std::string, int> by_rule;
    int signatures = 0;
    int differences = 0;
    unsigned deepest = 0;
    ComPtr<IMetaDataImport> metadata;
    std::map<mdToken, mdToken> last_of_table;
    const auto expect_all_rows_listed = [&] {
        for (const auto& [table, last] : last_of_table) {
            EXPECT_FALSE(metadata->IsValidToken(last + 1)) << std::hex << last;
        }
    };

    for (std::string word, rest; listing >> word && std::getline(listing >> std::ws, rest);) {
        if (word == "assembly") {
            expect_all_rows_listed();
            metadata = open(rest);
            ASSERT_TRUE(metadata) << rest;
            assembly = rest;
            assemblies.insert(assembly);
            last_of_table.clear();
            for (const mdToken table :
                 {mdtFieldDef, mdtMethodDef, mdtMemberRef, mdtSignature, mdtProperty}) {
                last_of_table[table] = table;
            }
            continue;
        }
        const mdToken token = hex(word);
        EXPECT_EQ(token, ++last_of_table[TypeFromToken(token)]);
        ++signatures;
        const Expectation expected(rest);
        Lister parser;
        const auto blob = blob_of(*metadata.get(), token);
        const Outcome outcome = parse(parser, blob);
        if (expected.outcome.to_the_end) {
            EXPECT_EQ(expected.size, blob.size()) << rest;
        }
        deepest = std::max(deepest, parser.deepest);
        if (outcome == expected.outcome) {
            for (const std::string& rule : expected.rules) {
                ++by_rule[rule];
            }
        } else if (++differences <= 20) {
            ADD_FAILURE() << assembly << ' ' << word << "\n  listed   " << rest << "\n  expected "
                          << expected.outcome << "\n  was      " << outcome;
        }
    }
    expect_all_rows_listed();

    for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
        const std::string file = entry.path().filename().string();
        if (entry.path().extension() == ".dll" && !assemblies.contains(file)) {
            EXPECT_FALSE(open(file)) << file << " is an assembly and is not listed";
        }
    }
    EXPECT_EQ(differences, 0);
    EXPECT_GT(signatures, 100'000);
    EXPECT_LT(deepest, SigParser::kMaxTypeDepth / 4)
        << "the limit is too near to what compilers emit";

    std::cout << signatures << " signatures of " << assemblies.size()
              << " assemblies, types nested " << deepest << " deep at most\n";
    for (const auto& [rule, count] : by_rule) {
        std::cout << std::setw(8) << count << "  " << rule << '\n';
    }
}

} // namespace
} // namespace corvane
