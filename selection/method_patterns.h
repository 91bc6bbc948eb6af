// Patterns of full names that choose methods from outside, CORVANE_METHODS: "Shop.Cart.*;
// !Shop.*.Dispose". Pure. The thread that initialises the profiler reads the text once. Afterwards
// any thread asks; the only thing that is written then is which patterns met a method.
#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// A text in which "*" stands for any run of characters, an empty one included. Everything else is
// meant as it stands, letter case included.
class Glob {
public:
    explicit Glob(std::wstring_view text);

    // Whether it is all of the name.
    bool matches(std::wstring_view name) const;

    // Whether it is all of any name that is longer and begins so.
    bool matches_beyond(std::wstring_view beginning) const;

private:
    std::vector<std::wstring> literals_; // what stands between the stars
};

class MethodPatterns {
public:
    static constexpr std::size_t kMostPatterns = 1'000;
    static constexpr std::size_t kLongestPattern = 1'000;

    // Is told of a pattern that is left out, and why.
    using Report = std::function<void(std::wstring_view pattern, const wchar_t* reason)>;

    // Appends the patterns of a text; they are divided by ";". Blanks around one are no part of it,
    // and where nothing stands is no pattern. With "!" in front it excludes.
    void append(std::wstring_view text, const Report& report);

    // Whether no method meets them: there is none that includes.
    bool empty() const noexcept { return !includes_; }

    // Of "Namespace.Type+Nested.Method": whether one includes it and none excludes it. Notes which
    // did.
    bool matches(std::wstring_view full_name) const;

    // The same, and nothing is noted: the method may never be compiled.
    bool would_match(std::wstring_view full_name) const;

    // Whether one includes any method of the type "Namespace.Type+Nested". What excludes is not
    // looked at.
    bool may_match_type(std::wstring_view type_name) const;

    // As they were written, in that order.
    std::vector<std::wstring> never_matched() const;

private:
    struct Pattern {
        Pattern(std::wstring_view as_written, bool is_exclusion, std::wstring_view names)
            : text(as_written), excludes(is_exclusion), glob(names) {}

        std::wstring text;
        bool excludes;
        Glob glob;
        mutable std::atomic<bool> was_met = false;
    };
    std::deque<Pattern> patterns_; // which do not move
    bool includes_ = false;
};

// Written during start-up, read-only from then on.
extern MethodPatterns method_patterns;

// Fills it from the environment. What is left out is logged.
void load_method_patterns();

// When the process ends: names those that chose or excluded nothing.
void report_patterns_never_matched();

} // namespace corvane
