#include "base/runtime_state.h"

namespace corvane {

constinit ComPtr<ICorProfilerInfo2> profilerInfo2;
constinit ComPtr<ICorProfilerInfo3> profilerInfo3;
constinit std::atomic<ModuleID> mscorlibModuleId = 0;
constinit std::atomic<ModuleID> coreLibraryModuleId = 0;
constinit std::atomic<bool> managedLibraryLoaded = false;

} // namespace corvane
