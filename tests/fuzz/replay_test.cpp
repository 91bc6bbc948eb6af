// Runs a fuzz target over its committed corpus: the seeds, and every input that once broke
// something. A target reports by aborting under the sanitizers; that the program comes to its end
// is the assertion.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> corpus() {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(CORVANE_CORPUS)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

TEST(Corpus, IsThere) {
    EXPECT_FALSE(corpus().empty());
}

class Replay : public testing::TestWithParam<std::filesystem::path> {};

TEST_P(Replay, EndsNormally) {
    std::ifstream file(GetParam(), std::ios::binary);
    ASSERT_TRUE(file);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    // Exactly as long as the input, so that AddressSanitizer sees the first byte read too many.
    const std::vector<std::uint8_t> input(text.begin(), text.end());
    EXPECT_EQ(LLVMFuzzerTestOneInput(input.data(), input.size()), 0);
}

INSTANTIATE_TEST_SUITE_P(Corpus, Replay, testing::ValuesIn(corpus()), [](const auto& info) {
    std::string name = info.param.filename().string();
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
});

} // namespace
