#include "rewrite/references/reference_signatures.h"

#include "il/byte_writer.h"
#include "il/element_type.h"

namespace corvane {

namespace {

constexpr std::uint8_t kStatic = 0x00;
constexpr std::uint8_t kInstance = 0x20;

// A signature that ends in a type and, after that, in `behind`.
SignatureBlob with_token(SignatureBlob blob, const CompressedToken& token, BlobForm form,
                         const SignatureBlob& behind = {}) {
    constexpr std::size_t kTokenRoom = 2;
    const std::size_t begin_of_end = blob.size() + kTokenRoom;
    ByteWriter writer(blob);
    writer.write(token.bytes());
    if (form == BlobForm::kFixedLength) {
        blob.resize(begin_of_end);
    }
    writer.write(behind);
    return blob;
}

} // namespace

SignatureBlob constructor_signature() {
    return {kInstance, 0, kElementVoid};
}

SignatureBlob get_indexes_signature() {
    return {kInstance, 0, kElementSzArray, kElementI4};
}

SignatureBlob log_signature() {
    return {kStatic, 2, kElementVoid, kElementI4, kElementString};
}

SignatureBlob error_signature(const CompressedToken& exception, BlobForm form) {
    return with_token({kStatic, 2, kElementBoolean, kElementString, kElementClass}, exception,
                      form);
}

SignatureBlob generic_prologue_signature(const CompressedToken& directives, BlobForm form) {
    return with_token({kStatic, 4, kElementVoid, kElementU4, kElementObject, kElementSzArray,
                       kElementObject, kElementClass},
                      directives, form);
}

SignatureBlob generic_epilogue_signature(const CompressedToken& directives, BlobForm form) {
    return with_token({kStatic, 5, kElementVoid, kElementU4, kElementObject, kElementSzArray,
                       kElementObject, kElementObject, kElementClass},
                      directives, form);
}

SignatureBlob contains_key_signature() {
    return {kStatic, 1, kElementBoolean, kElementU4};
}

SignatureBlob get_current_method_signature(const CompressedToken& method_base, BlobForm form) {
    return with_token({kStatic, 0, kElementClass}, method_base, form);
}

SignatureBlob register_method_signature(const CompressedToken& method_base, BlobForm form) {
    return with_token({kStatic, 3, kElementVoid, kElementU4, kElementClass}, method_base, form,
                      {kElementBoolean});
}

} // namespace corvane
