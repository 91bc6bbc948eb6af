#include "rewrite/references/known_references.h"

#include <map>
#include <mutex>

namespace corvane {

namespace {

struct OfModule {
    std::optional<InstrumentationReferences> injected;
    std::map<std::uint8_t, mdToken> boxing_types;
};

struct KnownReferences {
    std::mutex mutex;
    std::map<ModuleID, OfModule> modules;
};

// Outlives every thread that compiles.
KnownReferences& known() {
    static auto& references = *new KnownReferences();
    return references;
}

} // namespace

std::optional<InstrumentationReferences> known_references(ModuleID module) {
    KnownReferences& all = known();
    const std::lock_guard lock(all.mutex);
    const auto found = all.modules.find(module);
    return found != all.modules.end() ? found->second.injected : std::nullopt;
}

void keep_references(ModuleID module, const InstrumentationReferences& references) {
    KnownReferences& all = known();
    const std::lock_guard lock(all.mutex);
    all.modules[module].injected = references;
}

std::optional<mdToken> known_boxing_type(ModuleID module, std::uint8_t element_type) {
    KnownReferences& all = known();
    const std::lock_guard lock(all.mutex);
    const auto found = all.modules.find(module);
    if (found == all.modules.end()) {
        return std::nullopt;
    }
    const auto& types = found->second.boxing_types;
    const auto type = types.find(element_type);
    return type != types.end() ? std::optional(type->second) : std::nullopt;
}

void keep_boxing_type(ModuleID module, std::uint8_t element_type, mdToken type) {
    KnownReferences& all = known();
    const std::lock_guard lock(all.mutex);
    all.modules[module].boxing_types[element_type] = type;
}

void forget_references(ModuleID module) {
    KnownReferences& all = known();
    const std::lock_guard lock(all.mutex);
    all.modules.erase(module);
}

} // namespace corvane
