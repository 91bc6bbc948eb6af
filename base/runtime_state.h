// This process's runtime: its interfaces and modules. CClrProfiler::Initialize writes the
// interfaces before any other callback. The last three follow the module loads. Nothing is reset.
#pragma once

#include "clr/com_ptr.h"
#include "clr/cor_profiler.h"

#include <atomic>

namespace corvane {

// For the sampling and name threads; released at process exit.
extern constinit ComPtr<ICorProfilerInfo2> profilerInfo2;

// Null on a runtime without it; released at process exit.
extern constinit ComPtr<ICorProfilerInfo3> profilerInfo3;

// The module of the assembly "mscorlib", 0 until it is loaded; the last one loaded stays.
extern constinit std::atomic<ModuleID> mscorlibModuleId;

// In .NET the module of the runtime's own types, 0 until it is loaded.
extern constinit std::atomic<ModuleID> coreLibraryModuleId;

// The assembly that injected code calls has been loaded, and has all that is called.
extern constinit std::atomic<bool> managedLibraryLoaded;

} // namespace corvane
