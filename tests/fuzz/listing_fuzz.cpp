// Any bytes to both listings: they end, repeat, and keep the outline of their text.
#include "il/listing.h"
#include "tests/fuzz/require.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace corvane {
namespace {

std::vector<std::string> listing(std::span<const std::uint8_t> body) {
    std::vector<std::string> pieces;
    list_body(body, [&pieces](const std::string& piece) { pieces.push_back(piece); });
    return pieces;
}

void check(std::span<const std::uint8_t> body) {
    const auto size = static_cast<std::uint32_t>(body.size());
    const std::wstring dump = dumpBody(body.data(), size);
    require(dump.starts_with(L"(" + std::to_wstring(size) + L" bytes)\n    "),
            "a dump begins with the length");
    require(dump == dumpBody(body.data(), size), "a dump repeats");
    const bool is_body = dump.find(L"Header type: ") != std::wstring::npos;
    require(is_body == (dump.find(L"Code section (") != std::wstring::npos),
            "a dump with a header has code");

    const std::vector<std::string> pieces = listing(body);
    require(pieces.empty() != is_body, "what has a header is listed");
    if (is_body) {
        require(pieces.front() == "Code section:\n", "a listing begins with the code");
    }
    for (const std::string& piece : pieces) {
        require(!piece.empty() && piece.size() < 128, "pieces are short lines");
    }
    require(pieces == listing(body), "a listing repeats");
}

} // namespace
} // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::check({data, size});
    return 0;
}
