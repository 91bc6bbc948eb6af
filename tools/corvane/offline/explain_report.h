// What `corvane explain` shows of a method, and of all of them. Pure: texts in, lines out.
#pragma once

#include "tools/corvane/offline/explanation.h"
#include "tools/corvane/offline/il_lines.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace corvane::tool {

struct Layout {
    std::size_t width = 80;
    bool has_colours = false;
};

using IlText = std::optional<std::vector<IlLine>>; // nothing for code that cannot be read

const char* text_of(Rule rule); // empty for none
const char* text_of(Fate fate);

// The method, the rule and what becomes of it.
std::string method_lines(const MethodFate& fate, const std::string& reason,
                         const std::string& signature, const Layout& layout);

// The body as it is, and what it becomes if it is instrumented: side by side where there is room,
// else one under the other. What is new is marked with "+", what is no more with "-".
std::string body_lines(const IlText& before, const IlText* after, const Layout& layout);

struct Totals {
    std::map<Fate, std::size_t> methods;
    std::vector<std::pair<std::size_t, std::string>>
        reasons; // of methods that are left, most first
};

// How many methods there are of each kind, and why methods are left.
std::string total_lines(Totals totals, const Layout& layout);

// A text of any length in lines.
std::string text_lines(const std::string& text, const Layout& layout);

} // namespace corvane::tool
