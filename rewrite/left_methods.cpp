#include "rewrite/left_methods.h"

#include <mutex>
#include <set>
#include <utility>

namespace corvane {

namespace {

struct LeftMethods {
    std::mutex mutex;
    std::set<std::pair<ModuleID, mdMethodDef>> methods;
};

// Outlives every thread that compiles.
LeftMethods& left() {
    static auto& methods = *new LeftMethods();
    return methods;
}

} // namespace

bool is_left(ModuleID module, mdMethodDef method) {
    LeftMethods& all = left();
    const std::lock_guard lock(all.mutex);
    return all.methods.contains({module, method});
}

void leave_for_good(ModuleID module, mdMethodDef method) {
    LeftMethods& all = left();
    const std::lock_guard lock(all.mutex);
    all.methods.emplace(module, method);
}

void forget_left_methods(ModuleID module) {
    LeftMethods& all = left();
    const std::lock_guard lock(all.mutex);
    all.methods.erase(all.methods.lower_bound({module, 0}),
                      all.methods.upper_bound({module, ~mdMethodDef{0}}));
}

} // namespace corvane
