// Read, edit, write, read: whatever body is accepted can be written, as it is and with nops in all
// its gaps, and is then read with the same meaning. Writing what was written changes no byte but
// those of the maximum stack.
#include "rewrite/body/body_reader.h"
#include "rewrite/body/body_writer.h"
#include "tests/fuzz/require.h"
#include "tests/support/body_model.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvane {
namespace {

constexpr std::ptrdiff_t kMaxStackOffset = 2;

using Bytes = std::vector<std::uint8_t>;

Bytes write(MethodBody& body) {
    Bytes bytes;
    require(write_body(body, bytes) == BodyResult::kOk, "a model that was read can be written");
    return bytes;
}

void read(std::span<const std::uint8_t> bytes, MethodBody& body) {
    require(read_body(bytes, body) == BodyResult::kOk, "a body that was written can be read");
}

void check(std::span<const std::uint8_t> bytes) {
    MethodBody body;
    if (read_body(bytes, body) != BodyResult::kOk) {
        return;
    }
    Bytes written = write(body);
    MethodBody again;
    read(written, again);
    require(difference(body, again).empty(), "reading undoes writing");
    Bytes rewritten = write(again);
    std::fill_n(written.begin() + kMaxStackOffset, 2, std::uint8_t{0});
    std::fill_n(rewritten.begin() + kMaxStackOffset, 2, std::uint8_t{0});
    require(written == rewritten, "writing repeats");

    for (const int count : {1, 7}) {
        MethodBody edited;
        read(bytes, edited);
        const std::vector<bool> nops = insert_nops(edited, count);
        MethodBody edited_again;
        read(write(edited), edited_again);
        require(difference(body, edited_again, nops).empty(), "an edit keeps what was there");
    }
}

} // namespace
} // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::check({data, size});
    return 0;
}
