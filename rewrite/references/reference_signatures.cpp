#include "rewrite/references/reference_signatures.h"

#include "il/byte_writer.h"

namespace corvane {

std::vector<std::uint8_t> signature_blob(std::span<const std::uint8_t> signature,
                                         std::uint32_t type, BlobForm form) {
    constexpr std::size_t kTokenRoom = 2;
    std::vector<std::uint8_t> blob;
    ByteWriter writer(blob);
    for (const std::uint8_t byte : signature) {
        if (byte != reference_signature::kToken) {
            writer.write(byte);
        } else if (form == BlobForm::kExact) {
            writer.write(compress_token_exactly(type).bytes());
        } else {
            const std::size_t behind = blob.size() + kTokenRoom;
            writer.write(compress_token_to_two_bytes(type).bytes());
            blob.resize(behind);
        }
    }
    return blob;
}

} // namespace corvane
