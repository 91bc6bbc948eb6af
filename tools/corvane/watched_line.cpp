#include "tools/corvane/watched_line.h"

#include <algorithm>
#include <array>

namespace corvane::tool {
namespace {

constexpr std::string_view kDigits = "0123456789";

constexpr std::string_view kBodyFollows = " bytes)\n";

bool begins_with_thread(std::string_view line) {
    const std::size_t digits = line.find_first_not_of(kDigits);
    return digits != 0 && digits != line.npos && line[digits] == ' ';
}

std::string_view without_thread(std::string_view line) {
    return begins_with_thread(line) ? line.substr(line.find(' ') + 1) : line;
}

struct Known {
    int level;
    std::string_view begin;  // of the text behind the thread
    std::string_view within; // and this somewhere
};

constexpr std::array kKnown = {
    Known{3, "CClrProfiler::Initialize(): after should trace", ""},
    Known{3, "CClrProfiler::ShouldTrace(): called.", ""},
    Known{3, "[", "() : Instrumented, number "},
    Known{3, "[", kBodyFollows},
    Known{4, "CClrProfiler::CheckKey(): Could not find configuration.appSettings", ""},
    Known{4, "CClrProfiler::CheckKey(): configuration.appSettings.add element", ""},
    Known{4, "CClrProfiler::ModuleLoadFinished(): ", ""},
    Known{4, "Method ", " not traced because it has generic types"},
    Known{4, "[", "() : is instrumented already"},
    Known{4, "[]il_disassembler:() : ", ""},
};

} // namespace

bool is_profilers_line(std::string_view line) {
    return begins_with_thread(line) ||
           (line.starts_with('[') && line.find(kBodyFollows) != line.npos);
}

int level_of(std::string_view line) {
    const std::string_view text = without_thread(line);
    const auto* const found = std::ranges::find_if(kKnown, [text](const Known& known) {
        return text.starts_with(known.begin) && text.find(known.within) != text.npos;
    });
    return found == kKnown.end() ? 1 : found->level;
}

Weight weight_of(std::string_view line) {
    const auto says = [line](std::string_view words) { return line.find(words) != line.npos; };
    // The walk over a module's type references has level 1 and says little.
    if (level_of(line) > 1 || says("() : TRAVERSING TYPE ") || says("() : =====")) {
        return Weight::kDetail;
    }
    if (says("Left as it is") || says("it is transparent")) {
        return Weight::kLeft;
    }
    return says("Failed") || says("failed") || says("ould not") || says(" is left out: ")
               ? Weight::kFailure
               : Weight::kPlain;
}

std::string watched_text(std::string_view front, std::string_view line) {
    std::string text(front);
    line = line.substr(0, line.find_last_not_of("\r\n") + 1);
    for (const char c : line) {
        if (c == '\n') {
            text += "\r\n    ";
        } else if (static_cast<unsigned char>(c) >= ' ' || c == '\t') {
            text += c; // what a terminal would take for an order is left out
        }
    }
    return text;
}

} // namespace corvane::tool
