// The signatures of the methods that injected code calls (ECMA-335 II.23.2.1), as blobs for member
// references. Pure functions.
//
// A blob that names a type has a fixed length, the one that a token of two bytes gives it. In a
// module with so few type references that the token takes one byte, the blob keeps that length and
// is filled with zeros: at its end, or, where something follows the token, in front of that. This
// is wanted. A blob with a zero inside names no method that exists; strict IL has exact blobs.
#pragma once

#include "il/token_compression.h"

#include <cstdint>
#include <vector>

namespace corvane {

using SignatureBlob = std::vector<std::uint8_t>;

enum class BlobForm { kFixedLength, kExact };

// InstrumentationDirectives: instance void .ctor(), instance int32[] GetIndexes()
[[nodiscard]] SignatureBlob constructor_signature();
[[nodiscard]] SignatureBlob get_indexes_signature();
// span: static void Log(int32, string)
[[nodiscard]] SignatureBlob log_signature();
// span: static bool Error(string, Exception)
[[nodiscard]] SignatureBlob error_signature(const CompressedToken& exception, BlobForm form);
// span: static void GenericPrologue(uint32, object, object[], InstrumentationDirectives)
[[nodiscard]] SignatureBlob generic_prologue_signature(const CompressedToken& directives,
                                                       BlobForm form);
// span: static void GenericEpilogue(uint32, object, object[], object, InstrumentationDirectives)
[[nodiscard]] SignatureBlob generic_epilogue_signature(const CompressedToken& directives,
                                                       BlobForm form);
// Invokers: static bool ContainsKey(uint32)
[[nodiscard]] SignatureBlob contains_key_signature();
// MethodBase: static MethodBase GetCurrentMethod()
[[nodiscard]] SignatureBlob get_current_method_signature(const CompressedToken& method_base,
                                                         BlobForm form);
// Invokers: static void RegisterMethod(uint32, MethodBase, bool)
[[nodiscard]] SignatureBlob register_method_signature(const CompressedToken& method_base,
                                                      BlobForm form);

} // namespace corvane
