#include "tools/corvane/offline/assembly_file.h"

#include <gtest/gtest.h>

#include <cstring>

namespace corvane::tool {
namespace {

using File = std::vector<std::uint8_t>;

// The places of the image that `image` makes.
constexpr std::size_t kImage = 0x80;
constexpr std::size_t kOptionalHeader = kImage + 24;
constexpr std::uint32_t kSectionAddress = 0x2000;
constexpr std::size_t kSectionOffset = 0x200;
constexpr std::size_t kSectionSize = 0x100;
constexpr std::uint32_t kMetadataAddress = kSectionAddress + 0x80;
constexpr std::uint32_t kMetadataSize = 0x40;

template <class T>
void put(File& file, std::size_t at, T value) {
    std::memcpy(file.data() + at, &value, sizeof value);
}

// An image with one section: the runtime's header, and metadata.
File image(bool is_64_bit) {
    File file(kSectionOffset + kSectionSize);
    const std::size_t directories = kOptionalHeader + (is_64_bit ? 108 : 92);
    const std::uint16_t optional_size = is_64_bit ? 0xF0 : 0xE0;
    put(file, 0, std::uint16_t{0x5A4D});
    put(file, 0x3C, static_cast<std::uint32_t>(kImage));
    put(file, kImage, std::uint32_t{0x00004550});
    put(file, kImage + 6, std::uint16_t{1});
    put(file, kImage + 20, optional_size);
    put(file, kOptionalHeader, static_cast<std::uint16_t>(is_64_bit ? 0x20B : 0x10B));
    put(file, directories, std::uint32_t{16});
    put(file, directories + 4 + 14 * 8, kSectionAddress);
    put(file, directories + 4 + 14 * 8 + 4, std::uint32_t{72});
    const std::size_t section = kOptionalHeader + optional_size;
    put(file, section + 12, kSectionAddress);
    put(file, section + 16, static_cast<std::uint32_t>(kSectionSize));
    put(file, section + 20, static_cast<std::uint32_t>(kSectionOffset));
    put(file, kSectionOffset + 8, kMetadataAddress);
    put(file, kSectionOffset + 12, kMetadataSize);
    put(file, kSectionOffset + 0x80, std::uint32_t{0x424A5342});
    return file;
}

class AssemblyImage : public ::testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Forms, AssemblyImage, ::testing::Bool(), [](const auto& row) {
    return std::string(row.param ? "Of64Bits" : "Of32Bits");
});

TEST_P(AssemblyImage, HasMetadataAndCode) {
    const AssemblyFile file(image(GetParam()));
    ASSERT_EQ(file.verdict(), FileVerdict::kAssembly);
    EXPECT_EQ(file.metadata().size(), kMetadataSize);
    EXPECT_EQ(file.metadata()[0], 'B');
    EXPECT_EQ(file.at(kSectionAddress).size(), kSectionSize);
    EXPECT_EQ(file.at(kSectionAddress + 0xFF).size(), 1U);
    EXPECT_TRUE(file.at(kSectionAddress + 0x100).empty());
    EXPECT_TRUE(file.at(kSectionAddress - 1).empty());
    EXPECT_TRUE(file.at(0).empty());
    EXPECT_TRUE(file.at(~0U).empty());
}

TEST_P(AssemblyImage, IsWholeOrDamaged) {
    const File whole = image(GetParam());
    const std::size_t metadata_end = kSectionOffset + 0x80 + kMetadataSize;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const AssemblyFile file(File(whole.begin(), whole.begin() + static_cast<long>(size)));
        EXPECT_EQ(file.verdict() == FileVerdict::kAssembly, size >= metadata_end) << size;
        EXPECT_EQ(file.metadata().empty(), size < metadata_end) << size;
    }
}

TEST_P(AssemblyImage, BelievesNoNumber) {
    const File whole = image(GetParam());
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const char value : {'\x00', '\x7F', '\x80', '\xFF'}) {
            File bytes = whole;
            bytes[at] = static_cast<std::uint8_t>(value);
            const AssemblyFile file(std::move(bytes));
            EXPECT_EQ(file.metadata().empty(), file.verdict() != FileVerdict::kAssembly) << at;
        }
    }
}

TEST_P(AssemblyImage, IsNotManagedWithoutTheRuntimesHeader) {
    File native = image(GetParam());
    put(native, kOptionalHeader + (GetParam() ? 108 : 92) + 4 + 14 * 8, std::uint32_t{0});
    EXPECT_EQ(AssemblyFile(native).verdict(), FileVerdict::kNotManaged);
}

TEST(AssemblyFile, IsNoImage) {
    EXPECT_EQ(AssemblyFile(File()).verdict(), FileVerdict::kNotManaged);
    EXPECT_EQ(AssemblyFile(File(1000, 'M')).verdict(), FileVerdict::kNotManaged);
    EXPECT_EQ(AssemblyFile(File{'M', 'Z'}).verdict(), FileVerdict::kNotManaged);
}

} // namespace
} // namespace corvane::tool
