// Names near the rows of the table, and any signature. The three questions about a method are
// answered as a comparison of whole names and the parser's events answer them.
// An input is the switches, a row, an edit of its name (kind, place, character), which dot divides
// type and method, and the signature.
#include "il/element_type.h"
#include "il/sig_parser.h"
#include "selection/target_methods.h"
#include "tests/fuzz/input.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace corvane {
namespace {

// The last element type that was met within each parameter of a method.
class ParameterTypesSeen : public SigParser {
public:
    std::vector<std::uint8_t> types;
    bool instance = false;

protected:
    void on_begin_method(std::uint8_t convention) override {
        if (in_method_.empty()) {
            instance = cursor == sigStart + 1 && (convention & 0x20) != 0;
        }
        in_method_.push_back(true);
    }
    void on_end_method() override { in_method_.pop_back(); }
    void on_begin_property(std::uint8_t /*kind*/) override { in_method_.push_back(false); }
    void on_begin_type() override { last_ = cursor != sigEnd ? *cursor : last_; }
    void on_typed_by_ref() override { last_ = kElementTypedByRef; }
    void on_end_param() override {
        if (in_method_.back()) {
            types.push_back(last_);
        }
    }

private:
    std::vector<bool> in_method_;
    std::uint8_t last_ = 0;
};

bool plain_is_target(const std::wstring& name, const std::vector<std::uint8_t>& types) {
    for (const TargetMethod& row : target_methods) {
        if (std::wstring(row.name) != name) {
            continue;
        }
        if (!row.parameter_types) {
            return true;
        }
        const auto& [codes, count] = *row.parameter_types;
        if (types.size() == count) {
            return types == std::vector<std::uint8_t>(codes.begin(), codes.begin() + count);
        }
    }
    return false;
}

bool plain_has_generic_types(std::span<const std::uint8_t> signature,
                             const std::vector<std::uint8_t>& types) {
    const bool returns_variable =
        signature.size() > 2 && (signature[2] == kElementVar || signature[2] == kElementMVar);
    const auto count = [&](std::uint8_t type) {
        return std::count(types.begin(), types.end(), type);
    };
    return (!signature.empty() && (signature[0] & 0x10) != 0) || returns_variable ||
           count(kElementVar) + count(kElementMVar) + count(kElementTypedByRef) > 0;
}

void build_table(std::uint8_t switches) {
    target_methods.clear();
    build_target_methods({(switches & 3) != 0, (switches & 1) != 0, (switches & 2) != 0});
    // Overloads of one name, the case that the rows themselves do not have.
    const ParameterTypes one_int{{kElementI4}, 1};
    const ParameterTypes one_string{{kElementString}, 1};
    const ParameterTypes two{{kElementVar, kElementTypedByRef}, 2};
    for (const ParameterTypes& types : {one_int, one_string, two}) {
        target_methods.push_back({L"A.Type.Overloaded", types});
    }
}

std::wstring edited(std::wstring name, std::uint8_t kind, std::uint8_t place, wchar_t character) {
    const std::size_t at = place % (name.size() + 1);
    switch (kind % 5) {
    case 1:
        return name.insert(at, 1, character);
    case 2:
        return name.erase(at, 1);
    case 3:
        return name.replace(at, 1, 1, character);
    case 4:
        return name.replace(at, 1, 1, at < name.size() ? name[at] ^ 0x20 : character);
    default:
        return name;
    }
}

void check(Input input) {
    build_table(input.byte());
    const std::size_t row = input.byte() % (target_methods.size() + 1);
    const std::uint8_t kind = input.byte();
    const std::uint8_t place = input.byte();
    const wchar_t character = input.byte();
    const std::wstring name =
        edited(row < target_methods.size() ? std::wstring(target_methods[row].name) : L"Some.Main",
               kind, place, character);

    std::vector<std::size_t> dots;
    for (std::size_t i = name.size(); i-- > 0;) {
        if (name[i] == L'.') {
            dots.push_back(i);
        }
    }
    dots.push_back(name.size());
    dots.push_back(place % (name.size() + 1)); // which may be no dot
    const std::size_t dot = dots[input.byte() % dots.size()];
    const std::wstring type_name = name.substr(0, dot);
    const std::wstring method_name = name.substr(std::min(dot + 1, name.size()));
    const std::wstring whole = type_name + L"." + method_name;

    const auto signature = input.rest();
    const auto size = static_cast<std::uint32_t>(signature.size());
    const MethodName method{type_name, method_name, signature.data(), size};
    ParameterTypesSeen seen;
    seen.Parse(signature.data(), size);

    require(is_target_method(method) == plain_is_target(whole, seen.types),
            "a row is its whole name and the overload that it asks for");
    require(is_entry_point(method) == (method_name == L"Main" && !seen.instance),
            "an entry point is a static Main");
    require(has_generic_types(method) == plain_has_generic_types(signature, seen.types),
            "a generic signature has a variable in one of three places");
}

} // namespace
} // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::check(corvane::Input({data, size}));
    return 0;
}
