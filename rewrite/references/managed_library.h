// Whether the calls that are injected will find the library that they call. A method with a call
// into an assembly that is not there does not compile, so it is asked first.
#pragma once

#include "base/debug_log.h"
#include "clr/cor_profiler.h"
#include "clr/metadata.h"
#include "rewrite/references/assembly_reference.h"

#include <string_view>

namespace corvane {

// The token is that of the key in managed/Kite.Managed.
inline constexpr AssemblyIdentity kManagedLibrary = {
    L"kite.managed", {3, 9, 0, 0}, {0xC9, 0xCA, 0x73, 0x58, 0x77, 0x97, 0xB1, 0x08}};

// Whether a module of an assembly of that name, which has been loaded, is one that the calls bind
// to: of this version or a later one, and signed; with which key is not looked at. Another one is
// told to the log.
bool is_managed_library(ICorProfilerInfo* info, ModuleID module, const DebugLog& log);

// True once the library is loaded; for a module that was compiled against it and has its file
// beside it; and in the .NET Framework, where it is installed for all programs and loaded when it
// is first called. `metadata` is the module's, before anything is defined in it, and `module_name`
// its path.
bool can_find_managed_library(ICorProfilerInfo* info, IMetaDataAssemblyImport* metadata,
                              std::wstring_view module_name);

} // namespace corvane
