// What the references of a module are, for its later methods: tokens stay what they are, and making
// them or searching for them takes longer the more types the module refers to. Kept from the first
// method until the module is unloaded. Any compiling thread, and the thread that unloads a module;
// one lock, held for one access.
#pragma once

#include "clr/cor_profiler.h"
#include "rewrite/references/instrumentation_references.h"

#include <cstdint>
#include <optional>
#include <span>

namespace corvane {

[[nodiscard]] std::optional<InstrumentationReferences> known_references(ModuleID module);
void keep_references(ModuleID module, const InstrumentationReferences& references);

// The type that values of a primitive type are boxed as.
[[nodiscard]] std::optional<mdToken> known_boxing_type(ModuleID module, std::uint8_t element_type);
void keep_boxing_type(ModuleID module, std::uint8_t element_type, mdToken type);

// The token of a signature of locals.
[[nodiscard]] std::optional<std::uint32_t>
known_local_signature(ModuleID module, std::span<const std::uint8_t> blob);
void keep_local_signature(ModuleID module, std::span<const std::uint8_t> blob, std::uint32_t token);

void forget_references(ModuleID module);

} // namespace corvane
