// Signatures of the metadata (ECMA-335 II.23.2) as people read IL: "int32", "System.String[]",
// "method void *(object)". A signature that cannot be read gives a "?". Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace corvane::tool {

using Blob = std::span<const std::uint8_t>;

// A text is cut at so many bytes: a damaged type may hold itself.
constexpr std::size_t kLongestName = 600;

// What stands for a name that nobody knows.
constexpr const char* kUnknownName = "?";

// The name of a type: its table (0 TypeDef, 1 TypeRef, 2 TypeSpec) and its row.
using TypeNames = std::function<std::string(std::uint32_t table, std::uint32_t row)>;

struct SignatureTexts {
    bool is_whole = false; // else what could be read
    std::string result;
    std::vector<std::string> parameters;
};

// Of a method, or of a place that is called.
SignatureTexts method_texts(Blob signature, const TypeNames& names);

// Of the locals of a method, or the arguments of a generic one: behind the first byte of the blob.
std::vector<std::string> list_texts(Blob rest, const TypeNames& names);

// Of one type.
std::string type_text(Blob type, const TypeNames& names);

// Within the length of a name.
std::string cut(std::string text);

// With commas.
std::string joined(const std::vector<std::string>& parts);

} // namespace corvane::tool
