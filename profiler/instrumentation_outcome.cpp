#include "profiler/instrumentation_outcome.h"

#include "sampling/export_result.h"
#include "sampling/snapshot.h"
#include "selection/method_outcomes.h"

#include <memory>
#include <utility>

namespace corvane {
namespace {

std::int32_t get_outcome(InstrumentationOutcome* outcome) {
    if (outcome == nullptr) {
        return kNullArgument;
    }
    const MethodOutcomes outcomes = method_outcomes();
    InstrumentationOutcome result = {.instrumented = outcomes.instrumented,
                                     .left = outcomes.left,
                                     .leftForReason = outcomes.left_for_reason};
    if (outcomes.left > 0) {
        result.reason = Bstr(outcomes.reason.c_str());
    }
    std::construct_at(outcome, std::move(result)); // what was there before is the caller's
    return kSucceeded;
}

} // namespace
} // namespace corvane

std::int32_t GetInstrumentationOutcome(corvane::InstrumentationOutcome* outcome) {
    return corvane::finish_export(
        corvane::attempt_export([&] { return corvane::get_outcome(outcome); }));
}
