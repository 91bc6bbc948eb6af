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

} // namespace corvane::tool
