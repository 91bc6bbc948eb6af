#include "selection/method_patterns.h"

#include <algorithm>

namespace corvane {

MethodPatterns method_patterns;

namespace {

std::wstring_view trimmed(std::wstring_view text) {
    constexpr const wchar_t* kBlanks = L" \t\r\n";
    const std::size_t begin = text.find_first_not_of(kBlanks);
    return begin == std::wstring_view::npos
               ? std::wstring_view()
               : text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// Shows the parts of a text between the dividers, at least one.
template <class Visit>
void for_each_part(std::wstring_view text, wchar_t divider, const Visit& visit) {
    for (;;) {
        const std::size_t end = text.find(divider);
        visit(text.substr(0, end));
        if (end == std::wstring_view::npos) {
            return;
        }
        text.remove_prefix(end + 1);
    }
}

} // namespace

Glob::Glob(std::wstring_view text) {
    for_each_part(text, L'*',
                  [this](std::wstring_view literal) { literals_.emplace_back(literal); });
}

// Of the places that a literal between two stars may have, the first leaves the most room for what
// follows: no other one has to be tried.
bool Glob::matches(std::wstring_view name) const {
    const std::wstring& first = literals_.front();
    const std::wstring& last = literals_.back();
    if (literals_.size() == 1) {
        return name == first;
    }
    if (name.size() < first.size() + last.size() || !name.starts_with(first) ||
        !name.ends_with(last)) {
        return false;
    }
    name.remove_prefix(first.size());
    name.remove_suffix(last.size());
    return std::all_of(literals_.begin() + 1, literals_.end() - 1, [&name](const auto& literal) {
        const std::size_t found = name.find(literal);
        if (found == std::wstring_view::npos) {
            return false;
        }
        name.remove_prefix(found + literal.size());
        return true;
    });
}

bool Glob::matches_beyond(std::wstring_view beginning) const {
    const std::wstring_view first = literals_.front();
    return first.size() > beginning.size() ? first.starts_with(beginning)
                                           : literals_.size() > 1 && beginning.starts_with(first);
}

void MethodPatterns::append(std::wstring_view text, const Report& report) {
    for_each_part(text, L';', [&](std::wstring_view part) {
        const std::wstring_view pattern = trimmed(part);
        if (pattern.empty()) {
            return;
        }
        const bool excludes = pattern.front() == L'!';
        const std::wstring_view names = trimmed(pattern.substr(excludes ? 1 : 0));
        if (names.empty()) {
            report(pattern, L"nothing stands behind the \"!\"");
        } else if (names.size() > kLongestPattern) {
            report(pattern, L"it is longer than 1,000 characters");
        } else if (patterns_.size() == kMostPatterns) {
            report(pattern, L"there are 1,000 before it");
        } else {
            patterns_.emplace_back(pattern, excludes, names);
            includes_ = includes_ || !excludes;
        }
    });
}

bool MethodPatterns::matches(std::wstring_view full_name) const {
    bool included = false;
    bool excluded = false;
    for (const Pattern& pattern : patterns_) {
        bool& decided = pattern.excludes ? excluded : included;
        const bool is_known = pattern.was_met.load(std::memory_order_relaxed);
        if ((decided && is_known) || !pattern.glob.matches(full_name)) {
            continue;
        }
        decided = true;
        if (!is_known) {
            pattern.was_met.store(true, std::memory_order_relaxed);
        }
    }
    return included && !excluded;
}

bool MethodPatterns::would_match(std::wstring_view full_name) const {
    bool included = false;
    for (const Pattern& pattern : patterns_) {
        if ((pattern.excludes || !included) && pattern.glob.matches(full_name)) {
            if (pattern.excludes) {
                return false;
            }
            included = true;
        }
    }
    return included;
}

bool MethodPatterns::may_match_type(std::wstring_view type_name) const {
    const std::wstring beginning = std::wstring(type_name) + L'.';
    return std::any_of(patterns_.begin(), patterns_.end(), [&](const Pattern& pattern) {
        return !pattern.excludes && pattern.glob.matches_beyond(beginning);
    });
}

std::vector<std::wstring> MethodPatterns::never_matched() const {
    std::vector<std::wstring> texts;
    for (const Pattern& pattern : patterns_) {
        if (!pattern.was_met.load(std::memory_order_relaxed)) {
            texts.push_back(pattern.text);
        }
    }
    return texts;
}

} // namespace corvane
