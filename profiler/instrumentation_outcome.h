// The export that says what became of the chosen methods, for whoever wonders why nothing was
// recorded.
#pragma once

#include "sampling/automation.h"

#include <cstdint>

namespace corvane {

// What the caller reads; the layout is the interface.
struct InstrumentationOutcome {
    std::uint32_t instrumented = 0;
    std::uint32_t left = 0;          // methods that were chosen and stay as they are
    std::uint32_t leftForReason = 0; // those among them that were left for the commonest reason
    std::uint32_t unused = 0;
    Bstr reason{}; // that reason; null if none was left
};
static_assert(sizeof(InstrumentationOutcome) == 24);

} // namespace corvane

// Fills the caller's record, whose text the caller frees. 0, or 1 for a null pointer. Raises a
// ResultError when there is no memory for the text.
extern "C" std::int32_t GetInstrumentationOutcome(corvane::InstrumentationOutcome* outcome);
