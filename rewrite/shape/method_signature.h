// The parts of a method's signature that the emitters need: the outermost part of every type, where
// the parser's summary gives the innermost. Pure; the blob must outlive the results.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace corvane {

// How a value of a type gets into an object.
enum class Passing {
    kReference,      // it is one: a string, class or object
    kOtherReference, // it is one, treated as any object: an array, an instantiation of a class
    kPrimitive,      // boxed as the type of the runtime's library that its element type stands for
    kValueType,      // boxed as the type that its token names
    kGenericValueType, // boxed as the instantiation
    kNotAtAll          // a pointer, a TypedReference, a type variable
};

struct SignatureType {
    // The type alone: behind custom modifiers and the mark of a reference.
    std::span<const std::uint8_t> blob;
    bool by_ref = false;

    [[nodiscard]] std::uint8_t element_type() const { return blob.empty() ? 0 : blob[0]; }
    [[nodiscard]] Passing passing() const;
    // Of a class or value type, and of the generic type of an instantiation: its TypeDef, TypeRef
    // or TypeSpec token. Nothing for other types and for a token of another table.
    [[nodiscard]] std::optional<std::uint32_t> token() const;
};

struct MethodSignature {
    bool has_this = false;
    SignatureType result;
    std::vector<SignatureType> parameters;
};

// Nothing for a blob that is not one whole method signature.
[[nodiscard]] std::optional<MethodSignature>
read_method_signature(std::span<const std::uint8_t> blob);

} // namespace corvane
