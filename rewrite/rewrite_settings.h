// Process-wide state of IL rewriting.
#pragma once

#include <atomic>
#include <cstdint>

namespace corvane {

// CORVANE_STRICT_IL=1: injected references and code in the form that binds and verifies in every
// module. Written by CClrProfiler::Initialize, read-only from then on.
extern constinit std::atomic<bool> strict_il;

// The key under which the managed library knows the next method that is rewritten. Written by
// take_instrumentation_index, on any compiling thread.
extern constinit std::atomic<std::uint32_t> instrumentation_index;

// Returns the index and counts it up. That is a read and a write, not one step, which is
// deliberate: two methods that are compiled at the same moment may get the same index.
std::uint32_t take_instrumentation_index() noexcept;

// Whether the environment asks for strict IL.
bool environment_asks_for_strict_il() noexcept;

} // namespace corvane
