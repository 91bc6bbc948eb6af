#include "selection/ready_to_run.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace corvane {
namespace {

using Image = std::vector<std::uint8_t>;

constexpr std::uint32_t kFile = 0x80;
constexpr std::uint32_t kDirectory = kFile + 24 + 112 + 14 * 8;
constexpr std::uint32_t kRuntime = 0x200;
constexpr std::uint32_t kNative = 0x300;

void put(Image& image, std::size_t offset, std::uint32_t number) {
    std::memcpy(image.data() + offset, &number, sizeof(number));
}

// The headers on the way, and nothing else.
Image image_with(std::uint32_t flags) {
    Image image(kNative + 12);
    put(image, 0x3C, kFile);
    put(image, kDirectory, kRuntime);
    put(image, kRuntime + 64, kNative);
    put(image, kNative, 0x00525452);
    put(image, kNative + 8, flags);
    return image;
}

TEST(ReadyToRun, HasFlagsInItsHeader) {
    EXPECT_EQ(ready_to_run_flags(image_with(0x4A)), 0x4AU);
    EXPECT_FALSE(is_part_of_composite(0x4A)); // of a file that was compiled on its own
    EXPECT_TRUE(is_part_of_composite(0x6A));  // and with others
}

TEST(ReadyToRun, IsNotInEveryFile) {
    Image native = image_with(0x20);
    put(native, kDirectory, 0);
    EXPECT_EQ(ready_to_run_flags(native), std::nullopt);
    Image managed = image_with(0x20);
    put(managed, kRuntime + 64, 0);
    EXPECT_EQ(ready_to_run_flags(managed), std::nullopt);
    Image other = image_with(0x20);
    put(other, kNative, 0x4E45474E);
    EXPECT_EQ(ready_to_run_flags(other), std::nullopt);
}

TEST(ReadyToRun, IsNotLookedForBeyondTheImage) {
    const Image image = image_with(0x20);
    for (std::size_t size = 0; size < image.size(); ++size) {
        EXPECT_EQ(ready_to_run_flags({image.data(), size}), std::nullopt) << size;
    }
    for (const std::uint32_t link : {0x3CU, kDirectory, kRuntime + 64}) {
        Image astray = image;
        put(astray, link, 0xFFFFFFF0);
        EXPECT_EQ(ready_to_run_flags(astray), std::nullopt) << link;
    }
}

} // namespace
} // namespace corvane
