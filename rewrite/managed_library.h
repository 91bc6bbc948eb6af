// Whether the calls that are injected will find the library that they call. A method with a call
// into an assembly that is not there does not compile, so it is asked first.
#pragma once

#include "clr/cor_profiler.h"
#include "clr/metadata.h"

#include <string_view>

namespace corvane {

inline constexpr const wchar_t* kManagedLibrary = L"kite.managed";

// True once the library is loaded; for a module that was compiled against it and has its file
// beside it; and in the .NET Framework, where it is installed for all programs and loaded when it
// is first called. `metadata` is the module's, before anything is defined in it, and `module_name`
// its path.
bool can_find_managed_library(ICorProfilerInfo* info, IMetaDataAssemblyImport* metadata,
                              std::wstring_view module_name);

} // namespace corvane
