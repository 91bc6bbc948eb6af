// The snapshot service: the managed call stack of one thread of this process.
// TakeSnapshot may be called from any thread, several at once. The walk runs on a worker that lives
// as long as the call.
#pragma once

#include "clr/cor_profiler.h"

#include <oleauto.h>

#include <cstdint>
#include <vector>

namespace corvane {

// What the exports return.
inline constexpr std::int32_t kSucceeded = 0;
inline constexpr std::int32_t kNullArgument = 1;
inline constexpr std::int32_t kNoSnapshot = 2; // an unknown thread, or a walk that failed

// A request, handed to the worker.
struct CorvaneSnapshot {
    std::vector<FunctionID> frames; // innermost first; the walk appends
    std::int32_t osThreadId = 0;
    std::int32_t status = kSucceeded;
};

// The worker's entry; nobody reads its result.
HRESULT Thread_Do_Stack_Snapshot(CorvaneSnapshot* request);

} // namespace corvane

// Takes the managed frames of the thread, innermost first, as an array of doubles that is the
// caller's from then on (VT_R8, from 0; ids above 2^53 lose their low bits), and the time in
// microseconds since 1970-01-01 00:00 UTC. Raises an ResultError when a worker or the array cannot
// be had.
extern "C" std::int32_t TakeSnapshot(std::uint32_t osThreadId, SAFEARRAY** frames,
                                     std::int32_t* frameCount, std::uint64_t* timestamp);
