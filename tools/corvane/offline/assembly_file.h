// The bytes of an assembly's file, and the metadata in them. Pure.
#pragma once

#include "tools/corvane/image_headers.h"

#include <cstdint>
#include <vector>

namespace corvane::tool {

enum class FileVerdict {
    kAssembly,
    kNotManaged, // another file, or an image without the runtime's header
    kDamaged,    // what its headers name is not in the file
};

class AssemblyFile {
public:
    using Bytes = ImageBytes;

    explicit AssemblyFile(std::vector<std::uint8_t> bytes);
    AssemblyFile(const AssemblyFile&) = delete;
    AssemblyFile& operator=(const AssemblyFile&) = delete;

    [[nodiscard]] FileVerdict verdict() const { return verdict_; }

    // Empty unless it is an assembly.
    [[nodiscard]] Bytes metadata() const { return metadata_; }

    // From an address of the image to the end of what the file has of its section. Empty for an
    // address in none.
    [[nodiscard]] Bytes at(std::uint32_t address) const { return headers_.at(address); }

private:
    FileVerdict read();

    std::vector<std::uint8_t> bytes_;
    ImageHeaders headers_;
    Bytes metadata_;
    FileVerdict verdict_;
};

} // namespace corvane::tool
