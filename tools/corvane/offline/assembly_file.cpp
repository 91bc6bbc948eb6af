#include "tools/corvane/offline/assembly_file.h"

#include <cstddef>
#include <utility>

namespace corvane::tool {

namespace {

constexpr std::uint32_t kMetadataMagic = 0x424A5342;

} // namespace

AssemblyFile::AssemblyFile(std::vector<std::uint8_t> bytes)
    : bytes_(std::move(bytes)), headers_(bytes_), verdict_(read()) {}

FileVerdict AssemblyFile::read() {
    if (!headers_.is_image()) {
        return FileVerdict::kNotManaged;
    }
    if (!headers_.is_whole()) {
        return FileVerdict::kDamaged;
    }
    const auto runtime = headers_.directory(ImageHeaders::kRuntime);
    if (runtime.address == 0) {
        return FileVerdict::kNotManaged;
    }
    // ECMA-335 II.25.3.3
    const Bytes header = at(runtime.address);
    const auto address = read_at<std::uint32_t>(header, 8);
    const auto size = read_at<std::uint32_t>(header, 12).value_or(0);
    const Bytes found = part_of(at(address.value_or(0)), 0, size);
    if (size == 0 || found.size() != size || read_at<std::uint32_t>(found, 0) != kMetadataMagic) {
        return FileVerdict::kDamaged;
    }
    metadata_ = found;
    return FileVerdict::kAssembly;
}

} // namespace corvane::tool
