// What a test-only profiler is made of that stands between the runtime and the one under test: it
// hands out the real object, of the library that CORVANE_WITNESS_TARGET names, with some callbacks
// replaced by its own, which call the real ones. Its library is linked with between.cpp, which
// exports what the runtime looks for. One object a process; callbacks arrive on any thread.
#pragma once

#include "clr/cor_profiler.h"

#include <array>
#include <cstddef>

namespace corvane::testing {

// The callbacks as the real object has them; slots count from the table's start.
void* original_callback(std::size_t slot);

template <class... Arguments>
HRESULT call_original(std::size_t slot, ICorProfilerCallback3* self, Arguments... arguments) {
    using Method = HRESULT(STDMETHODCALLTYPE*)(ICorProfilerCallback3*, Arguments...);
    return reinterpret_cast<Method>(original_callback(slot))(self, arguments...);
}

void replace_callback(std::size_t slot, void* method);

template <class... Arguments>
void replace(std::size_t slot,
             HRESULT(STDMETHODCALLTYPE* method)(ICorProfilerCallback3*, Arguments...)) {
    replace_callback(slot, reinterpret_cast<void*>(method));
}

// The library's own: replaces what it wants to see, once, in front of the first callback.
void stand_between();

} // namespace corvane::testing
