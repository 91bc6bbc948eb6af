#include "tools/corvane/offline/decided_methods.h"

#include "tools/corvane/utf8.h"

#include <algorithm>
#include <functional>
#include <map>
#include <string>

namespace corvane::tool {

std::vector<Decided> decide_all(Explanation& explanation,
                                const std::function<void(std::size_t, std::size_t)>& progress) {
    const std::vector<FunctionID> functions = explanation.runtime().functions();
    std::vector<Decided> decided;
    decided.reserve(functions.size());
    for (const FunctionID function : functions) {
        decided.push_back({OfflineRuntime::token_of(function), explanation.decide(function)});
        progress(decided.size(), functions.size());
    }
    return decided;
}

std::vector<const Decided*> selected(const std::vector<Decided>& all,
                                     const std::optional<MethodPatterns>& patterns,
                                     MetadataNames& names) {
    std::vector<const Decided*> result;
    for (const Decided& method : all) {
        if (patterns ? patterns->would_match(to_wide(names.full_method_name(method.token)))
                     : method.fate.fate != Fate::kNotChosen) {
            result.push_back(&method);
        }
    }
    return result;
}

Bodies bodies_of(const Decided& method, Explanation& explanation, MetadataNames& names) {
    Bodies bodies = {il_lines(explanation.runtime().original_body(method.token), names),
                     std::nullopt};
    if (method.fate.fate == Fate::kInstrumented) {
        bodies.after = il_lines(explanation.runtime().new_body(method.token), names);
    }
    return bodies;
}

Totals totals_of(const std::vector<Decided>& all) {
    Totals totals;
    std::map<std::wstring, std::size_t> reasons;
    for (const Decided& method : all) {
        ++totals.methods[method.fate.fate];
        if (method.fate.fate == Fate::kLeft) {
            ++reasons[method.fate.reason];
        }
    }
    for (const auto& [reason, count] : reasons) {
        totals.reasons.emplace_back(count, to_utf8(reason));
    }
    std::ranges::stable_sort(totals.reasons, std::ranges::greater(),
                             [](const auto& entry) { return entry.first; });
    return totals;
}

} // namespace corvane::tool
