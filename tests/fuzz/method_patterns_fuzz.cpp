// Any list of patterns and any name. The answers are those of the plain rule, which tries every run
// for every star, character by character. An input is a line with the name, a line with the type,
// and the list.
#include "selection/method_patterns.h"
#include "tests/fuzz/input.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace corvane {
namespace {

std::wstring without_blanks_around(std::wstring text) {
    const auto is_blank = [](wchar_t c) {
        return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n';
    };
    while (!text.empty() && is_blank(text.back())) {
        text.pop_back();
    }
    text.erase(text.begin(), std::ranges::find_if_not(text, is_blank));
    return text;
}

// Which beginnings of the pattern match the name so far, a character of the name at a time.
std::vector<bool> states_behind(const std::wstring& pattern, std::wstring_view name) {
    const auto follow_stars = [&pattern](std::vector<bool>& states) {
        for (std::size_t i = 0; i < pattern.size(); ++i) {
            states[i + 1] = states[i + 1] || (states[i] && pattern[i] == L'*');
        }
    };
    std::vector<bool> states(pattern.size() + 1, false);
    states[0] = true;
    follow_stars(states);
    for (const wchar_t c : name) {
        std::vector<bool> next(pattern.size() + 1, false);
        for (std::size_t i = 0; i < pattern.size(); ++i) {
            next[i] = next[i] || (states[i] && pattern[i] == L'*');
            next[i + 1] = next[i + 1] || (states[i] && pattern[i] == c && c != L'*');
        }
        follow_stars(next);
        states = std::move(next);
    }
    return states;
}

struct Plain {
    std::wstring text;
    std::wstring names;
    bool excludes;
};

void check(const std::wstring& name, const std::wstring& type, const std::wstring& list) {
    std::vector<Plain> plain;
    std::vector<std::wstring> left_out;
    std::size_t begin = 0;
    while (begin <= list.size()) {
        const std::size_t end = std::min(list.find(L';', begin), list.size());
        const std::wstring text = without_blanks_around(list.substr(begin, end - begin));
        begin = end + 1;
        if (text.empty()) {
            continue;
        }
        const bool excludes = text[0] == L'!';
        const std::wstring names = without_blanks_around(text.substr(excludes ? 1 : 0));
        if (names.empty() || names.size() > 1'000 || plain.size() == 1'000) {
            left_out.push_back(text);
        } else {
            plain.push_back({text, names, excludes});
        }
    }

    MethodPatterns patterns;
    std::vector<std::wstring> reported;
    patterns.append(list, [&](std::wstring_view pattern, const wchar_t* reason) {
        require(reason[0] != L'\0', "what is left out has a reason");
        reported.emplace_back(pattern);
    });
    require(reported == left_out, "what is left out is reported");

    bool included = false;
    bool excluded = false;
    bool may_match = false;
    std::vector<std::wstring> all;
    std::vector<std::wstring> unmet;
    for (const Plain& pattern : plain) {
        all.push_back(pattern.text);
        if (states_behind(pattern.names, name).back()) {
            (pattern.excludes ? excluded : included) = true;
        } else {
            unmet.push_back(pattern.text);
        }
        auto beyond = states_behind(pattern.names, type + L'.');
        beyond.pop_back(); // a method has a name, which something has to match
        may_match = may_match || (!pattern.excludes && std::ranges::count(beyond, true) != 0);
    }
    const auto includes = [](const Plain& pattern) { return !pattern.excludes; };
    require(patterns.empty() == std::ranges::none_of(plain, includes), "some include, or none");
    require(patterns.would_match(name) == (included && !excluded), "the plain rule, ahead");
    require(patterns.never_matched() == all, "nothing was noted yet");
    for (int round = 0; round < 2; ++round) {
        require(patterns.matches(name) == (included && !excluded), "the plain rule");
        require(patterns.never_matched() == unmet, "each pattern that meets a name is known");
    }
    require(patterns.may_match_type(type) == may_match, "a type is ruled out if no method fits");
}

} // namespace
} // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::Input input({data, size});
    const std::string name = input.line();
    const std::string type = input.line();
    corvane::check({name.begin(), name.end()}, {type.begin(), type.end()},
                   corvane::wide(input.rest()));
    return 0;
}
