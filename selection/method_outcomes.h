// What became of the chosen methods: how many were instrumented, which were left unchanged, and
// why. Those that were left stay so until their module is unloaded. A reason may disappear, for
// example when the managed library is loaded later. But by then the method may be running, and the
// runtime can move a running call into newly compiled code (on-stack replacement), which must be of
// the same body. The list also keeps a method from being examined and reported once for every tier.
// Any compiling thread, the thread that unloads a module, and whoever asks; one lock, held for one
// access.
#pragma once

#include "clr/cor_profiler.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

[[nodiscard]] bool is_left(ModuleID module, mdMethodDef method);
// Nothing for a method that is not left.
[[nodiscard]] std::optional<std::wstring> reason_left(ModuleID module, mdMethodDef method);
// The first reason of a method counts.
void leave_for_good(ModuleID module, mdMethodDef method, std::wstring_view reason);
void forget_left_methods(ModuleID module);

void count_instrumented();

// Of the whole process so far, unloaded modules included.
struct MethodOutcomes {
    std::uint32_t instrumented = 0;
    std::uint32_t left = 0;
    std::uint32_t left_for_reason = 0; // for the commonest one
    std::wstring reason{};             // of several the first in alphabetical order

    bool operator==(const MethodOutcomes&) const = default;
};

[[nodiscard]] MethodOutcomes method_outcomes();
void forget_method_outcomes(); // for tests

} // namespace corvane
