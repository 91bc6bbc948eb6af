// The tree of calls that the managed library prints, read back: which methods it names, and the
// figures of its last line.
#pragma once

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvane::testing {

// As printed, but for the times.
inline std::vector<std::string> read_call_lines(const std::filesystem::path& file) {
    static const std::regex time(R"(  \[[0-9.?]+ us\])");
    std::ifstream stream(file, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        line.erase(line.find_last_not_of('\r') + 1);
        lines.push_back(std::regex_replace(line, time, ""));
    }
    return lines;
}

struct CallTree {
    long long calls = 0; // those that are printed
    int threads = 0;
    long long dropped = 0;
    long long failures = 0;
    int unended = 0;                          // of those that are printed
    std::map<std::string, long long> methods; // without their arguments, and how often
};

inline CallTree read_call_tree(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    CallTree tree;
    std::string line;
    for (std::string next; std::getline(stream, next); line = next) {
        const std::size_t begin = next.find_first_not_of(' ');
        const std::size_t end = next.find('(');
        if (begin != 0 && begin < end && end != next.npos) {
            ++tree.methods[next.substr(begin, end - begin)];
            tree.unended += next.substr(0, next.find_last_not_of('\r') + 1).ends_with(") ...");
        }
    }
    static const std::regex last(
        R"((\d+) calls, (\d+) threads, (\d+) dropped(?:, (\d+) failures)?\r?)");
    std::smatch figures;
    if (!std::regex_match(line, figures, last)) {
        throw std::runtime_error(file.string() + " is no whole tree of calls, but ends in " + line);
    }
    tree.calls = std::stoll(figures[1]);
    tree.threads = std::stoi(figures[2]);
    tree.dropped = std::stoll(figures[3]);
    tree.failures = figures[4].matched ? std::stoll(figures[4]) : 0;
    return tree;
}

} // namespace corvane::testing
