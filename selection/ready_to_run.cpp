#include "selection/ready_to_run.h"

#include "il/byte_reader.h"

namespace corvane {
namespace {

std::optional<std::uint32_t> number_at(std::span<const std::uint8_t> image, std::size_t offset) {
    ByteReader reader(image);
    return reader.skip(offset) ? reader.read<std::uint32_t>() : std::nullopt;
}

} // namespace

// From header to header: of the file, of a 64-bit image with its 15th data directory, of the
// runtime, of ReadyToRun.
std::optional<std::uint32_t> ready_to_run_flags(std::span<const std::uint8_t> image) {
    constexpr std::size_t kNewHeader = 0x3C;
    constexpr std::size_t kRuntimeDirectory = 24 + 112 + 14 * 8;
    constexpr std::size_t kNativeHeader = 64;
    constexpr std::uint32_t kSignature = 0x00525452; // "RTR"
    constexpr std::size_t kFlags = 8;

    const auto new_header = number_at(image, kNewHeader);
    const auto runtime =
        new_header ? number_at(image, *new_header + kRuntimeDirectory) : std::nullopt;
    if (!runtime || *runtime == 0) {
        return std::nullopt;
    }
    const auto native = number_at(image, *runtime + kNativeHeader);
    if (!native || *native == 0 || number_at(image, *native) != kSignature) {
        return std::nullopt;
    }
    return number_at(image, *native + kFlags);
}

} // namespace corvane
