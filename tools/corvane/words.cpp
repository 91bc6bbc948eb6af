#include "tools/corvane/words.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace corvane::tool {

SplitWords split_words(Words words) {
    SplitWords split;
    const auto dashes = std::ranges::find(words, L"--");
    if (dashes != words.end()) {
        split.behind.assign(std::next(dashes), words.end());
        words.erase(dashes, words.end());
    }
    split.own = std::move(words);
    return split;
}

std::optional<std::wstring> before_nothing(const Words& words) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i].empty()) {
            return i == 0 ? std::wstring() : words[i - 1];
        }
        if (words[i].starts_with(L"--") && words[i].find(L'=') == words[i].size() - 1) {
            return words[i];
        }
    }
    return std::nullopt;
}

std::wstring quoted(const std::wstring& word) {
    if (!word.empty() && word.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
        return word;
    }
    std::wstring text = L"\"";
    std::size_t backslashes = 0; // they count double before a quote, and only there
    for (const wchar_t c : word) {
        if (c == L'"') {
            text.append(backslashes + 1, L'\\');
        }
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        text += c;
    }
    return text.append(backslashes, L'\\') + L'"';
}

std::wstring command_line(const Words& words) {
    std::wstring line;
    for (const std::wstring& word : words) {
        line += (line.empty() ? L"" : L" ") + quoted(word);
    }
    return line;
}

} // namespace corvane::tool
