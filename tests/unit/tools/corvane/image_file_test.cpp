#include "tools/corvane/image_file.h"

#include <gtest/gtest.h>

#include <cstring>

#ifdef _WIN32
#include <filesystem>
#include <fstream>
#include <iterator>
#endif

namespace corvane::tool {
namespace {

// An image with one section, which begins at the address and the position 0x200.
class TestImage {
public:
    explicit TestImage(std::uint16_t machine = kMachineX64) : bytes_(0x600, '\0') {
        put(0, "MZ");
        put<std::uint32_t>(0x3C, 0x80);
        put(0x80, "PE");
        put<std::uint16_t>(0x84, machine);
        put<std::uint16_t>(0x86, 1);
        const bool is_wide = machine != kMachineX86;
        put<std::uint16_t>(0x94, is_wide ? 240 : 224);
        put<std::uint16_t>(0x98, is_wide ? 0x20B : 0x10B);
        directories_ = 0x98 + (is_wide ? 112U : 96U);
        put<std::uint32_t>(directories_ - 4, 16);
        const std::size_t section = directories_ + 128;
        put<std::uint32_t>(section + 12, 0x200);
        put<std::uint32_t>(section + 16, 0x400);
        put<std::uint32_t>(section + 20, 0x200);
    }

    template <class T>
    void put(std::size_t at, T value) {
        std::memcpy(bytes_.data() + at, &value, sizeof(value));
    }
    void put(std::size_t at, const char* text) {
        std::memcpy(bytes_.data() + at, text, std::strlen(text));
    }

    void directory(std::uint32_t number, std::uint32_t address) {
        put<std::uint32_t>(directories_ + number * 8, address);
    }

    void managed(std::uint32_t flags) {
        directory(14, 0x200);
        put<std::uint32_t>(0x200 + 16, flags);
    }

    void exports(const char* name) {
        directory(0, 0x300);
        put<std::uint32_t>(0x300 + 24, 1);
        put<std::uint32_t>(0x300 + 32, 0x340);
        put<std::uint32_t>(0x340, 0x350);
        put(0x350, name);
    }

    std::string& bytes() { return bytes_; }

private:
    std::string bytes_;
    std::size_t directories_ = 0;
};

TEST(ReadImage, TakesOnlyImages) {
    EXPECT_FALSE(read_image(""));
    EXPECT_FALSE(read_image("@echo off"));
    EXPECT_FALSE(read_image("MZ" + std::string(100, '\0')));
    EXPECT_TRUE(read_image(TestImage().bytes()));
}

TEST(ReadImage, NeverReadsPastTheEnd) {
    TestImage image;
    image.managed(1);
    image.exports("DllGetClassObject");
    for (std::size_t size = 0; size < image.bytes().size(); ++size) {
        read_image(std::string(image.bytes(), 0, size)); // the sanitizers watch
    }
    for (std::size_t at = 0; at < image.bytes().size(); ++at) {
        std::string bytes = image.bytes();
        bytes[at] = '\xFF';
        read_image(bytes);
    }
}

TEST(ReadImage, TellsTheMachine) {
    EXPECT_FALSE(read_image(TestImage(kMachineX64).bytes())->runs_as_32_bit);
    EXPECT_TRUE(read_image(TestImage(kMachineX86).bytes())->runs_as_32_bit);
    EXPECT_EQ(read_image(TestImage(kMachineArm64).bytes())->machine, kMachineArm64);
}

TEST(ReadImage, KnowsManagedProgramsForAnyMachine) {
    const auto runs_as_32_bit = [](std::uint32_t flags) {
        TestImage image(kMachineX86);
        image.managed(flags);
        EXPECT_TRUE(read_image(image.bytes())->is_managed);
        return read_image(image.bytes())->runs_as_32_bit;
    };
    EXPECT_FALSE(runs_as_32_bit(0x1));
    EXPECT_TRUE(runs_as_32_bit(0x3));
    EXPECT_TRUE(runs_as_32_bit(0x20003));
    EXPECT_TRUE(runs_as_32_bit(0x0));
    EXPECT_FALSE(read_image(TestImage().bytes())->is_managed);
}

TEST(ReadImage, ReadsExports) {
    TestImage image;
    image.exports("DllGetClassObject");
    EXPECT_EQ(read_image(image.bytes())->exports, std::set<std::string>{"DllGetClassObject"});
    TestImage ahead_of_time;
    ahead_of_time.exports("DotNetRuntimeDebugHeader");
    EXPECT_TRUE(read_image(ahead_of_time.bytes())->is_native_aot);
    EXPECT_FALSE(read_image(image.bytes())->is_native_aot);
}

#ifdef _WIN32
TEST(ReadImage, ReadsTheProfilerItself) {
    std::ifstream stream("CorvaneProfiler.dll", std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream),
                            std::istreambuf_iterator<char>()};
    const auto image = read_image(bytes);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->machine, kMachineX64);
    EXPECT_FALSE(image->is_managed || image->is_app_host || image->is_native_aot);
    EXPECT_TRUE(image->exports.contains("DllGetClassObject"));
    EXPECT_TRUE(image->exports.contains("TakeSnapshot"));
}
#endif

} // namespace
} // namespace corvane::tool
