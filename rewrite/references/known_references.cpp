#include "rewrite/references/known_references.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

namespace corvane {

namespace {

std::string_view text_of(std::span<const std::uint8_t> blob) {
    return {reinterpret_cast<const char*>(blob.data()), blob.size()};
}

struct HashOfText {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
        return std::hash<std::string_view>()(text);
    }
};

struct OfModule {
    std::optional<InstrumentationReferences> injected;
    std::map<std::uint8_t, mdToken> boxing_types;
    std::unordered_map<std::string, std::uint32_t, HashOfText, std::equal_to<>> local_signatures;
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

std::optional<std::uint32_t> known_local_signature(ModuleID module,
                                                   std::span<const std::uint8_t> blob) {
    KnownReferences& all = known();
    const std::lock_guard lock(all.mutex);
    const auto found = all.modules.find(module);
    if (found == all.modules.end()) {
        return std::nullopt;
    }
    const auto& signatures = found->second.local_signatures;
    const auto signature = signatures.find(text_of(blob));
    return signature != signatures.end() ? std::optional(signature->second) : std::nullopt;
}

void keep_local_signature(ModuleID module, std::span<const std::uint8_t> blob,
                          std::uint32_t token) {
    KnownReferences& all = known();
    const std::lock_guard lock(all.mutex);
    all.modules[module].local_signatures.emplace(text_of(blob), token);
}

void forget_references(ModuleID module) {
    KnownReferences& all = known();
    const std::lock_guard lock(all.mutex);
    all.modules.erase(module);
}

} // namespace corvane
