// The signatures of the methods that injected code calls (ECMA-335 II.23.2.1), as blobs for member
// references. Pure.
//
// A blob that names a type has a fixed length: its length with a token of two bytes. In a module
// with few type references the token takes one byte. Then the blob keeps that length and is filled
// with zeros: at its end, or in front of any part that follows the token. This is deliberate. A
// blob with a zero inside names no method that exists; strict IL has exact blobs.
#pragma once

#include "il/element_type.h"
#include "il/token_compression.h"

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace corvane {

namespace reference_signature {

inline constexpr std::uint8_t kStatic = 0x00;
inline constexpr std::uint8_t kInstance = 0x20;
inline constexpr std::uint8_t kGeneric = 0x10;
inline constexpr std::uint8_t kInstantiation = 0x0A;
// Stands where the token of a type comes. No signature has this byte.
inline constexpr std::uint8_t kToken = 0xFF;

template <class... Byte>
constexpr auto bytes(Byte... byte) {
    return std::array{static_cast<std::uint8_t>(byte)...};
}

// InstrumentationDirectives: instance void .ctor(), instance int32[] GetIndexes()
inline constexpr auto kConstructor = bytes(kInstance, 0, kElementVoid);
inline constexpr auto kGetIndexes = bytes(kInstance, 0, kElementSzArray, kElementI4);
// span: static void Log(int32, string)
inline constexpr auto kLog = bytes(kStatic, 2, kElementVoid, kElementI4, kElementString);
// span: static bool Error(string, Exception)
inline constexpr auto kError =
    bytes(kStatic, 2, kElementBoolean, kElementString, kElementClass, kToken);
// span: static void GenericPrologue(uint32, object, object[], InstrumentationDirectives)
inline constexpr auto kGenericPrologue =
    bytes(kStatic, 4, kElementVoid, kElementU4, kElementObject, kElementSzArray, kElementObject,
          kElementClass, kToken);
// span: static void GenericEpilogue(uint32, object, object[], object, InstrumentationDirectives)
inline constexpr auto kGenericEpilogue =
    bytes(kStatic, 5, kElementVoid, kElementU4, kElementObject, kElementSzArray, kElementObject,
          kElementObject, kElementClass, kToken);
// Invokers: static bool ContainsKey(uint32)
inline constexpr auto kContainsKey = bytes(kStatic, 1, kElementBoolean, kElementU4);
// MethodBase: static MethodBase GetCurrentMethod()
inline constexpr auto kGetCurrentMethod = bytes(kStatic, 0, kElementClass, kToken);
// Invokers: static void RegisterMethod(uint32, MethodBase, bool)
inline constexpr auto kRegisterMethod =
    bytes(kStatic, 3, kElementVoid, kElementU4, kElementClass, kToken, kElementBoolean);

// Invokers: static bool HasListeners()
inline constexpr auto kHasListeners = bytes(kStatic, 0, kElementBoolean);
// Array: static int32 IndexOf<T>(T[], T), and what makes T an int32
inline constexpr auto kIndexOf =
    bytes(kStatic | kGeneric, 1, 2, kElementI4, kElementSzArray, kElementMVar, 0, kElementMVar, 0);
inline constexpr auto kOfInt32 = bytes(kInstantiation, 1, kElementI4);

} // namespace reference_signature

enum class BlobForm { kFixedLength, kExact };

// One of the signatures, with the type in its place. Of a token that takes four bytes the fixed
// form has the first two.
[[nodiscard]] std::vector<std::uint8_t> signature_blob(std::span<const std::uint8_t> signature,
                                                       std::uint32_t type, BlobForm form);

} // namespace corvane
