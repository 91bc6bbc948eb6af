// The cached class factory: one per process, never destroyed. While a caller holds a reference to
// it, the server stays loaded.
#pragma once

#include <windows.h>

#include <unknwn.h>

namespace corvane {

// The factory of CClrProfiler. The reference is the caller's.
HRESULT get_profiler_class_factory(REFIID iid, void** object) noexcept;

} // namespace corvane
