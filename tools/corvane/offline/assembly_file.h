// The bytes of an assembly's file, and what of them stands where in its image. Nothing in the file
// is trusted: what a header says is looked at only where the file has it. Pure.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace corvane::tool {

enum class FileVerdict {
    kAssembly,
    kNotManaged, // another file, or an image without the runtime's header
    kDamaged,    // what its headers name is not in the file
};

class AssemblyFile {
public:
    using Bytes = std::span<const std::uint8_t>;

    explicit AssemblyFile(std::vector<std::uint8_t> bytes);
    AssemblyFile(const AssemblyFile&) = delete;
    AssemblyFile& operator=(const AssemblyFile&) = delete;

    [[nodiscard]] FileVerdict verdict() const { return verdict_; }

    // Empty unless it is an assembly.
    [[nodiscard]] Bytes metadata() const { return metadata_; }

    // From an address of the image to the end of what the file has of its section. Empty for an
    // address in none.
    [[nodiscard]] Bytes at(std::uint32_t address) const;

private:
    struct Section {
        std::uint32_t address;
        Bytes bytes;
    };

    FileVerdict read();

    std::vector<std::uint8_t> bytes_;
    std::vector<Section> sections_;
    Bytes metadata_;
    FileVerdict verdict_;
};

} // namespace corvane::tool
