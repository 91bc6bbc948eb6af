// Golden texts that two variants of a run share: a line that only one of them has begins with that
// one's mark, '-' or '+', every other line with a blank. With CORVANE_REBASE set the lines of the
// variant that runs are written anew.
#pragma once

#include "tests/support/fixtures.h"

#include <algorithm>
#include <string>
#include <vector>

namespace corvane {

inline constexpr char kFirstMark = '-';
inline constexpr char kSecondMark = '+';

inline std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        line.erase(std::min(line.find('\r'), line.size()));
        lines.push_back(line);
    }
    return lines;
}

inline std::string joined_lines(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + '\n';
    }
    return text;
}

// What one of the variants has.
inline std::vector<std::string> lines_marked(const std::vector<std::string>& golden, char mark) {
    std::vector<std::string> lines;
    for (const std::string& line : golden) {
        if (line.starts_with(' ') || line.starts_with(mark)) {
            lines.push_back(line.substr(1));
        }
    }
    return lines;
}

// Both variants, with as many lines in common as they have in the same order.
inline std::vector<std::string> mark_lines(const std::vector<std::string>& first,
                                           const std::vector<std::string>& second) {
    std::vector<std::vector<std::size_t>> common(first.size() + 1,
                                                 std::vector<std::size_t>(second.size() + 1));
    for (std::size_t i = first.size(); i-- > 0;) {
        for (std::size_t k = second.size(); k-- > 0;) {
            common[i][k] = first[i] == second[k] ? common[i + 1][k + 1] + 1
                                                 : std::max(common[i + 1][k], common[i][k + 1]);
        }
    }
    std::vector<std::string> marked;
    std::size_t i = 0;
    std::size_t k = 0;
    while (i < first.size() || k < second.size()) {
        if (i < first.size() && k < second.size() && first[i] == second[k]) {
            marked.push_back(' ' + first[i++]);
            ++k;
        } else if (k == second.size() ||
                   (i < first.size() && common[i + 1][k] >= common[i][k + 1])) {
            marked.push_back(kFirstMark + first[i++]);
        } else {
            marked.push_back(kSecondMark + second[k++]);
        }
    }
    return marked;
}

inline void expect_golden_lines(const std::string& name, char mark,
                                const std::vector<std::string>& actual) {
    const std::filesystem::path path = fixture_path(name);
    const std::vector<std::string> golden =
        std::filesystem::exists(path) ? lines_of(read_text(path)) : std::vector<std::string>();
    if (std::getenv("CORVANE_REBASE") == nullptr) {
        EXPECT_EQ(joined_lines(lines_marked(golden, mark)), joined_lines(actual))
            << "CORVANE_REBASE=1 rewrites " << path;
        return;
    }
    expect_golden(name, joined_lines(mark == kFirstMark
                                         ? mark_lines(actual, lines_marked(golden, kSecondMark))
                                         : mark_lines(lines_marked(golden, kFirstMark), actual)));
}

} // namespace corvane
