#include "sampling/known_functions.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <new>
#include <optional>

namespace corvane {
namespace {

struct Functions {
    std::mutex mutex; // around all but `asking`
    FunctionSet lasting;
    std::map<ModuleID, FunctionSet> collectible; // of each loaded module that can be collected
    FunctionSet until_unload;
    std::uint64_t loads = 0; // of such modules
    std::uint64_t unloads = 0;
    std::size_t missed_modules = 0; // for which there was no memory
    std::shared_mutex asking;       // shared by those who ask the runtime

    bool all_last() const { return collectible.empty() && missed_modules == 0; }
    bool knows(FunctionID function) const {
        return lasting.contains(function) || until_unload.contains(function) ||
               std::ranges::any_of(collectible, [function](const auto& module) {
                   return module.second.contains(function);
               });
    }
};

// Outlives every thread that samples, and takes no memory: what is noted must not get lost.
Functions& functions() {
    alignas(Functions) static std::byte room[sizeof(Functions)];
    static auto& all = *new (room) Functions();
    return all;
}

bool is_generic(ICorProfilerInfo2* info, ClassID type) {
    ULONG32 arguments = 0;
    return FAILED(info->GetClassIDInfo2(type, nullptr, nullptr, nullptr, 0, &arguments, nullptr)) ||
           arguments != 0;
}

// The module that the function lives as long as, if that is certain.
std::optional<ModuleID> module_of(ICorProfilerInfo2* info, FunctionID function) {
    ClassID type = 0;
    ModuleID module = 0;
    mdToken token = 0;
    ULONG32 arguments = 0;
    if (FAILED(
            info->GetFunctionInfo2(function, 0, &type, &module, &token, 0, &arguments, nullptr)) ||
        arguments != 0 || type == 0 || is_generic(info, type)) {
        return std::nullopt;
    }
    return module;
}

// The set for a function of that module; the lock is held.
FunctionSet& set_for(Functions& all, std::optional<ModuleID> module) {
    if (!module) {
        return all.until_unload;
    }
    const auto found = all.collectible.find(*module);
    if (found != all.collectible.end()) {
        return found->second;
    }
    return all.missed_modules != 0 ? all.until_unload : all.lasting;
}

} // namespace

std::size_t FunctionSet::find(const std::vector<FunctionID>& slots, FunctionID function) noexcept {
    // Ids are addresses, of which neither end varies much.
    std::size_t slot = (function * 0x9E3779B97F4A7C15U) >> 32;
    for (;; ++slot) {
        slot &= slots.size() - 1;
        if (slots[slot] == function || slots[slot] == 0) {
            return slot;
        }
    }
}

bool FunctionSet::contains(FunctionID function) const noexcept {
    return function != 0 && !slots_.empty() && slots_[find(slots_, function)] == function;
}

void FunctionSet::insert(FunctionID function) {
    if (function == 0 || contains(function)) {
        return;
    }
    if (4 * (size_ + 1) > 3 * slots_.size()) {
        grow();
    }
    slots_[find(slots_, function)] = function;
    ++size_;
}

void FunctionSet::grow() {
    std::vector<FunctionID> slots(std::max<std::size_t>(8, 2 * slots_.size()));
    for (const FunctionID function : slots_) {
        if (function != 0) {
            slots[find(slots, function)] = function;
        }
    }
    slots_ = std::move(slots);
}

void FunctionSet::clear() noexcept {
    slots_ = std::vector<FunctionID>(); // and not {}, which keeps the memory
    size_ = 0;
}

void note_collectible_module(ModuleID module) {
    Functions& all = functions();
    const std::lock_guard lock(all.mutex);
    ++all.loads;
    try {
        all.collectible.try_emplace(module);
    } catch (const std::bad_alloc&) {
        ++all.missed_modules;
        throw;
    }
}

void note_function(ICorProfilerInfo2* info, FunctionID function) {
    Functions& all = functions();
    {
        const std::lock_guard lock(all.mutex);
        if (all.all_last()) {
            all.lasting.insert(function);
            return;
        }
        if (all.knows(function)) {
            return;
        }
    }
    const auto module = module_of(info, function);
    const std::lock_guard lock(all.mutex);
    set_for(all, module).insert(function);
}

void forget_functions_of(ModuleID module) {
    Functions& all = functions();
    {
        const std::lock_guard lock(all.mutex);
        ++all.unloads;
        all.until_unload.clear();
        if (all.collectible.erase(module) == 0) {
            // One that was missed, or one that goes with its application domain, and they with it.
            all.lasting.clear();
            all.missed_modules -= all.missed_modules != 0 ? 1 : 0;
        }
    }
    const std::lock_guard wait(all.asking); // for those who have found one known
}

WalkStart begin_walk() {
    Functions& all = functions();
    const std::lock_guard lock(all.mutex);
    return {all.loads, all.unloads};
}

void note_walked_functions(const WalkStart& start, std::span<const FunctionID> walked) {
    Functions& all = functions();
    const std::lock_guard lock(all.mutex);
    if (all.unloads != start.unloads) {
        return;
    }
    if (all.all_last() && all.loads == start.loads) {
        for (const FunctionID function : walked) {
            all.lasting.insert(function);
        }
        return;
    }
    for (const FunctionID function : walked) {
        if (!all.knows(function)) {
            all.until_unload.insert(function);
        }
    }
}

KnownFunction::KnownFunction(FunctionID function) {
    Functions& all = functions();
    asking_ = std::shared_lock(all.asking);
    const std::lock_guard lock(all.mutex);
    is_known_ = all.knows(function);
}

} // namespace corvane
