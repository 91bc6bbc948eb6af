#include "selection/method_outcomes.h"

#include <map>
#include <mutex>
#include <utility>

namespace corvane {

namespace {

struct Outcomes {
    std::mutex mutex;
    using Reasons = std::map<std::wstring, std::uint32_t>; // nothing is removed from it but all
    Reasons reasons;
    std::map<std::pair<ModuleID, mdMethodDef>, const Reasons::value_type*> left;
    std::uint32_t instrumented = 0;
};

// Outlives every thread that compiles.
Outcomes& outcomes() {
    static auto& all = *new Outcomes();
    return all;
}

} // namespace

bool is_left(ModuleID module, mdMethodDef method) {
    Outcomes& all = outcomes();
    const std::lock_guard lock(all.mutex);
    return all.left.contains({module, method});
}

void leave_for_good(ModuleID module, mdMethodDef method, std::wstring_view reason) {
    Outcomes& all = outcomes();
    const std::lock_guard lock(all.mutex);
    if (all.left.contains({module, method})) {
        return;
    }
    auto& counted = *all.reasons.try_emplace(std::wstring(reason)).first;
    all.left.emplace(std::pair(module, method), &counted);
    ++counted.second;
}

std::optional<std::wstring> reason_left(ModuleID module, mdMethodDef method) {
    Outcomes& all = outcomes();
    const std::lock_guard lock(all.mutex);
    const auto found = all.left.find({module, method});
    return found == all.left.end() ? std::nullopt : std::optional(found->second->first);
}

void forget_left_methods(ModuleID module) {
    Outcomes& all = outcomes();
    const std::lock_guard lock(all.mutex);
    all.left.erase(all.left.lower_bound({module, 0}),
                   all.left.upper_bound({module, ~mdMethodDef{0}}));
}

void count_instrumented() {
    Outcomes& all = outcomes();
    const std::lock_guard lock(all.mutex);
    ++all.instrumented;
}

MethodOutcomes method_outcomes() {
    Outcomes& all = outcomes();
    const std::lock_guard lock(all.mutex);
    MethodOutcomes result = {.instrumented = all.instrumented};
    for (const auto& [reason, methods] : all.reasons) {
        result.left += methods;
        if (methods > result.left_for_reason) {
            result.left_for_reason = methods;
            result.reason = reason;
        }
    }
    return result;
}

void forget_method_outcomes() {
    Outcomes& all = outcomes();
    const std::lock_guard lock(all.mutex);
    all.left.clear();
    all.reasons.clear();
    all.instrumented = 0;
}

} // namespace corvane
