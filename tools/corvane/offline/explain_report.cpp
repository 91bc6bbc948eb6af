#include "tools/corvane/offline/explain_report.h"

#include "tools/corvane/columns.h"
#include "tools/corvane/terminal.h"

#include <algorithm>

namespace corvane::tool {
namespace {

constexpr std::size_t kFateColumn = 2;
constexpr std::size_t kRuleColumn = kFateColumn + 14;
constexpr std::size_t kSignatureColumn = kRuleColumn + 17;
constexpr std::size_t kSideBySide = 120; // columns, at least
constexpr std::size_t kCodeColumn = 4;   // behind the mark
constexpr const char* kUnreadable = "its code cannot be read";
constexpr const char* kLineEnd = "\r\n";

Colour colour_of(Fate fate) {
    return fate == Fate::kInstrumented ? Colour::kGood
           : fate == Fate::kLeft       ? Colour::kWarning
                                       : Colour::kFaint;
}

// A line of a body in a column of that width.
std::vector<std::string> code_lines(const IlLine& line, std::size_t width) {
    std::string text(line.depth * std::size_t{2}, ' ');
    text += line.label.empty() ? std::string() : line.label + "  ";
    const std::size_t hanging = std::min(text.size() + 2, width / 2);
    return wrapped(text + line.text, width, hanging);
}

Colour colour_of_mark(char mark) {
    return mark == '+' ? Colour::kGood : mark == '-' ? Colour::kBad : Colour::kPlain;
}

void append_code(std::string& report, const IlLine& line, char mark, const Layout& layout) {
    const std::size_t width = layout.width - std::min(layout.width, kCodeColumn + 1);
    for (const std::string& part : code_lines(line, width)) {
        const std::string text = std::string("  ").append(1, mark).append(" ").append(part);
        report += coloured(text, colour_of_mark(mark), layout.has_colours) + kLineEnd;
    }
}

std::string one_under_the_other(const std::vector<IlLine>& before, const std::vector<IlLine>& after,
                                const std::vector<LinePair>& pairs, const Layout& layout) {
    std::string report = std::string("    before:") + kLineEnd;
    const auto is_same = [&](const LinePair& pair) {
        return pair.before && pair.after &&
               before[*pair.before].meaning == after[*pair.after].meaning;
    };
    for (const LinePair& pair : pairs) {
        if (pair.before) {
            append_code(report, before[*pair.before], is_same(pair) ? ' ' : '-', layout);
        }
    }
    report += std::string("    after:") + kLineEnd;
    for (const LinePair& pair : pairs) {
        if (pair.after) {
            append_code(report, after[*pair.after], is_same(pair) ? ' ' : '+', layout);
        }
    }
    return report;
}

std::string side_by_side(const std::vector<IlLine>& before, const std::vector<IlLine>& after,
                         const std::vector<LinePair>& pairs, const Layout& layout) {
    // The method's own code is the shorter one, and is indented less.
    const std::size_t left = (layout.width - 8) * 2 / 5;
    const std::size_t right = layout.width - 8 - left;
    std::string report = "    " + padded("before", left) + "   after" + kLineEnd;
    for (const LinePair& pair : pairs) {
        const bool is_same =
            pair.before && pair.after && before[*pair.before].meaning == after[*pair.after].meaning;
        const auto lines_before =
            pair.before ? code_lines(before[*pair.before], left) : std::vector<std::string>();
        const auto lines_after =
            pair.after ? code_lines(after[*pair.after], right) : std::vector<std::string>();
        for (std::size_t i = 0; i < std::max(lines_before.size(), lines_after.size()); ++i) {
            const bool has_left = i < lines_before.size();
            const bool has_right = i < lines_after.size();
            const char left_mark = has_left && !is_same ? '-' : ' ';
            const char right_mark = has_right && !is_same ? '+' : ' ';
            const std::string left_text =
                std::string("  ")
                    .append(1, left_mark)
                    .append(" ")
                    .append(padded(has_left ? lines_before[i] : "", left));
            report += coloured(left_text, colour_of_mark(left_mark), layout.has_colours) + " |";
            if (has_right) {
                const std::string right_text =
                    std::string(1, right_mark).append(" ").append(lines_after[i]);
                report += coloured(right_text, colour_of_mark(right_mark), layout.has_colours);
            }
            report += kLineEnd;
        }
    }
    return report;
}

} // namespace

const char* text_of(Rule rule) {
    switch (rule) {
    case Rule::kEntryPoint:
        return "entry point";
    case Rule::kTable:
        return "table";
    case Rule::kAttribute:
        return "trace attribute";
    case Rule::kPattern:
        return "pattern";
    case Rule::kNone:
        break;
    }
    return "";
}

const char* text_of(Fate fate) {
    return fate == Fate::kInstrumented ? "instrumented"
           : fate == Fate::kLeft       ? "left"
                                       : "not chosen";
}

std::string method_lines(const MethodFate& fate, const std::string& reason,
                         const std::string& signature, const Layout& layout) {
    const std::size_t room = layout.width - 1 - std::min(layout.width - 1, kSignatureColumn);
    std::string report;
    for (const std::string& part : wrapped(signature, room, 2)) {
        report += report.empty()
                      ? std::string(kFateColumn, ' ') +
                            coloured(padded(text_of(fate.fate), kRuleColumn - kFateColumn),
                                     colour_of(fate.fate), layout.has_colours) +
                            padded(text_of(fate.rule), kSignatureColumn - kRuleColumn)
                      : std::string(kSignatureColumn, ' ');
        report += part + kLineEnd;
    }
    if (!reason.empty()) {
        const std::size_t reason_room = layout.width - 1 - std::min(layout.width - 1, kRuleColumn);
        for (const std::string& part : wrapped(reason, reason_room, 2)) {
            report += std::string(kRuleColumn, ' ') + part + kLineEnd;
        }
    }
    return report;
}

std::string body_lines(const IlText& before, const IlText* after, const Layout& layout) {
    if (!before || (after != nullptr && !*after)) {
        return std::string("    ") + kUnreadable + kLineEnd;
    }
    std::string report;
    if (after == nullptr) {
        for (const IlLine& line : *before) {
            append_code(report, line, ' ', layout);
        }
    } else if (const auto pairs = align(*before, **after); layout.width >= kSideBySide) {
        report = side_by_side(*before, **after, pairs, layout);
    } else {
        report = one_under_the_other(*before, **after, pairs, layout);
    }
    return report + kLineEnd;
}

std::string total_lines(Totals totals, const Layout& layout) {
    std::size_t all = 0;
    for (const auto& [fate, count] : totals.methods) {
        all += count;
    }
    const auto count_of = [&totals](Fate fate) { return std::to_string(totals.methods[fate]); };
    std::string report =
        text_lines(std::to_string(all) + " methods with code: " + count_of(Fate::kInstrumented) +
                       " instrumented, " + count_of(Fate::kLeft) + " left as they are, " +
                       count_of(Fate::kNotChosen) + " not chosen",
                   layout);
    for (const auto& [count, reason] : totals.reasons) {
        const std::string number = std::to_string(count);
        const std::string line =
            std::string(6 - std::min<std::size_t>(number.size(), 6), ' ') + number + "  " + reason;
        for (const std::string& part : wrapped(line, layout.width - 1, 8)) {
            report += part + kLineEnd;
        }
    }
    return report;
}

std::string text_lines(const std::string& text, const Layout& layout) {
    std::string report;
    for (const std::string& part : wrapped(text, layout.width - 1, 2)) {
        report += part + kLineEnd;
    }
    return report;
}

} // namespace corvane::tool
