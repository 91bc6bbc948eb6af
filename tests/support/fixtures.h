// Fixture files of the tests: method bodies in hexadecimal, and golden texts. With CORVANE_REBASE
// set a golden text is rewritten instead of compared.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace corvane {

inline std::filesystem::path fixture_path(const std::string& name) {
    return std::filesystem::path(CORVANE_FIXTURES) / name;
}

inline std::string read_text(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

// Bytes in hexadecimal, "BYTE*COUNT" for a run of them, "#" up to the end of the line for people.
inline std::vector<std::uint8_t> parse_hex(const std::string& text) {
    std::vector<std::uint8_t> bytes;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        for (std::string word; words >> word;) {
            const std::size_t star = word.find('*');
            const std::size_t count =
                star == std::string::npos ? 1 : std::stoul(word.substr(star + 1));
            bytes.insert(bytes.end(), count,
                         static_cast<std::uint8_t>(std::stoul(word.substr(0, star), nullptr, 16)));
        }
    }
    return bytes;
}

// The names, without extension, of the files of a fixture folder with that extension.
inline std::vector<std::string> fixture_names(const std::string& folder,
                                              const std::string& extension) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(fixture_path(folder))) {
        if (entry.path().extension() == extension) {
            names.push_back(entry.path().stem().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

inline void expect_golden(const std::string& name, const std::string& actual) {
    const std::filesystem::path path = fixture_path(name);
    if (std::getenv("CORVANE_REBASE") != nullptr) {
        std::ofstream file(path, std::ios::binary);
        file << actual;
        ASSERT_TRUE(file.flush()) << path;
        return;
    }
    EXPECT_EQ(read_text(path), actual) << "CORVANE_REBASE=1 rewrites " << path;
}

} // namespace corvane
