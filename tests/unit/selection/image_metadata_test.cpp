#include "selection/image_metadata.h"

#include <windows.h>

#include <cor.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace corvane {
namespace {

// An image with one section, which lies elsewhere in the file than in memory, for one processor or
// for every one.
template <class Headers>
class MadeImage {
public:
    static constexpr DWORD kInMemory = 0x600;
    static constexpr DWORD kInFile = 0x300;
    static constexpr DWORD kCliOffset = 0x20;
    static constexpr DWORD kMetadataOffset = 0x80;

    explicit MadeImage(bool is_flat) : bytes(0x1000), start_(is_flat ? kInFile : kInMemory) {
        dos().e_magic = IMAGE_DOS_SIGNATURE;
        dos().e_lfanew = 0x40;
        headers().Signature = IMAGE_NT_SIGNATURE;
        headers().FileHeader.NumberOfSections = 1;
        headers().FileHeader.SizeOfOptionalHeader = sizeof(headers().OptionalHeader);
        headers().OptionalHeader.Magic = sizeof(Headers) == sizeof(IMAGE_NT_HEADERS64)
                                             ? IMAGE_NT_OPTIONAL_HDR64_MAGIC
                                             : IMAGE_NT_OPTIONAL_HDR32_MAGIC;
        cli_directory() = {kInMemory + kCliOffset, sizeof(IMAGE_COR20_HEADER)};
        section().VirtualAddress = kInMemory;
        section().PointerToRawData = kInFile;
        section().SizeOfRawData = 0x200;
        cli().MetaData = {kInMemory + kMetadataOffset, 0x40};
        std::memcpy(metadata(), "BSJB", 4);
    }

    template <class T>
    T& at(std::size_t offset) {
        return *reinterpret_cast<T*>(bytes.data() + offset);
    }
    IMAGE_DOS_HEADER& dos() { return at<IMAGE_DOS_HEADER>(0); }
    Headers& headers() { return at<Headers>(0x40); }
    IMAGE_DATA_DIRECTORY& cli_directory() {
        return headers().OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_COM_DESCRIPTOR];
    }
    IMAGE_SECTION_HEADER& section() { return at<IMAGE_SECTION_HEADER>(0x40 + sizeof(Headers)); }
    IMAGE_COR20_HEADER& cli() { return at<IMAGE_COR20_HEADER>(start_ + kCliOffset); }
    std::byte* metadata() { return bytes.data() + start_ + kMetadataOffset; }

    std::vector<std::byte> bytes;

private:
    DWORD start_;
};

template <class Headers>
class ImageMetadata : public ::testing::Test {};
using Kinds = ::testing::Types<IMAGE_NT_HEADERS32, IMAGE_NT_HEADERS64>;
TYPED_TEST_SUITE(ImageMetadata, Kinds);

TYPED_TEST(ImageMetadata, IsFound) {
    for (const bool is_flat : {false, true}) {
        MadeImage<TypeParam> image(is_flat);
        const auto found = find_image_metadata(image.bytes.data(), is_flat);
        EXPECT_EQ(found.data(), image.metadata());
        EXPECT_EQ(found.size(), 0x40U);
    }
}

TYPED_TEST(ImageMetadata, IsNotFoundInWhatIsNoAssembly) {
    using Made = MadeImage<TypeParam>;
    void (*const changes[])(Made&) = {
        [](Made& image) { image.dos().e_magic = 0; },
        [](Made& image) { image.headers().Signature = 0; },
        [](Made& image) { image.cli_directory() = {}; },
        [](Made& image) { image.cli().MetaData = {}; },
        [](Made& image) { *image.metadata() = std::byte{}; },
    };
    for (const bool is_flat : {false, true}) {
        for (const auto change : changes) {
            Made image(is_flat);
            change(image);
            EXPECT_TRUE(find_image_metadata(image.bytes.data(), is_flat).empty());
        }
    }
    EXPECT_TRUE(find_image_metadata(nullptr, false).empty());
}

TYPED_TEST(ImageMetadata, LiesInASectionOfAFlatImage) {
    using Made = MadeImage<TypeParam>;
    void (*const changes[])(Made&) = {
        [](Made& image) { image.headers().FileHeader.NumberOfSections = 0; },
        [](Made& image) { image.section().SizeOfRawData = Made::kMetadataOffset + 0x3F; },
        [](Made& image) { image.section().VirtualAddress += Made::kCliOffset + 1; },
        [](Made& image) { image.cli().MetaData.Size = 0x200; },
    };
    for (const auto change : changes) {
        Made image(true);
        change(image);
        EXPECT_TRUE(find_image_metadata(image.bytes.data(), true).empty());
    }
}

} // namespace
} // namespace corvane
