// The function name service: type and method names of the functions in snapshots.
// GetFunctionNames may be called from any thread and takes no lock. A worker that lives as long as
// the call reads the metadata; nothing is kept between calls.
#pragma once

#include "sampling/automation.h"

#include <cstdint>
#include <vector>

namespace corvane {

// What the caller reads; the layout is the interface.
struct FunctionNameRecord {
    double functionId = 0; // as TakeSnapshot gives it
    Bstr typeName;         // namespace and name; of a nested type its own name only
    Bstr methodName;       // both null when they could not be read
};
static_assert(sizeof(FunctionNameRecord) == 24);

// A request, handed to the worker.
using CorvaneFunctionNames = std::vector<FunctionNameRecord>;

// The worker's entry; nobody reads its result.
HRESULT Thread_Function_Names_App(CorvaneFunctionNames* request);

} // namespace corvane

// Names the functions whose ids are pointed to. The array of `count` records is the caller's from
// then on, without an export to free it. Raises an ResultError when memory or a worker cannot be
// had; a negative count is more than there is memory for.
extern "C" std::int32_t GetFunctionNames(const double* const* ids, std::int32_t count,
                                         corvane::FunctionNameRecord** records);
