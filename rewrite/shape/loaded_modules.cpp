#include "rewrite/shape/loaded_modules.h"

#include <atomic>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <vector>

namespace corvane {

namespace {

struct LoadedModules {
    std::mutex mutex; // around `modules`, for one access
    std::set<ModuleID> modules;
    std::shared_mutex visits; // shared by those who look
    std::atomic<std::uint64_t> state = 0;
};

// Outlives every thread that compiles.
LoadedModules& loaded() {
    static auto& modules = *new LoadedModules();
    return modules;
}

bool can_be_collected(ICorProfilerInfo3* info, ModuleID module) {
    ULONG length = 0;
    AssemblyID assembly = 0;
    DWORD flags = 0;
    return info != nullptr &&
           (FAILED(info->GetModuleInfo2(module, nullptr, 0, &length, nullptr, &assembly, &flags)) ||
            (flags & COR_PRF_MODULE_COLLECTIBLE) != 0);
}

std::vector<ModuleID> list() {
    LoadedModules& all = loaded();
    const std::lock_guard lock(all.mutex);
    return {all.modules.begin(), all.modules.end()};
}

} // namespace

bool add_loaded_module(ICorProfilerInfo3* info, ModuleID module) {
    if (can_be_collected(info, module)) {
        return false;
    }
    LoadedModules& all = loaded();
    const std::lock_guard lock(all.mutex);
    all.modules.insert(module);
    ++all.state;
    return true;
}

void remove_loaded_module(ModuleID module) {
    LoadedModules& all = loaded();
    {
        const std::lock_guard lock(all.mutex);
        ++all.state;
        if (all.modules.erase(module) == 0) {
            return;
        }
    }
    const std::lock_guard wait(all.visits); // for those who have it in their list
}

bool is_loaded_module(ModuleID module) {
    LoadedModules& all = loaded();
    const std::lock_guard lock(all.mutex);
    return all.modules.contains(module);
}

std::uint64_t loaded_modules_state() {
    return loaded().state;
}

void visit_loaded_modules(const std::function<bool(ModuleID module)>& visit) {
    const std::shared_lock looking(loaded().visits);
    for (const ModuleID module : list()) {
        if (!visit(module)) {
            return;
        }
    }
}

} // namespace corvane
