// Checks that the injected calls will bind. A method with a call of a missing assembly or member
// does not compile. So every name is searched for first: in the managed library, and in the
// runtime's own. Any compiling thread; verdicts about files are kept for the process.
#pragma once

#include "clr/cor_profiler.h"
#include "clr/metadata.h"
#include "rewrite/references/assembly_reference.h"

#include <string>
#include <string_view>

namespace corvane {

// The token is that of the key in managed/Kite.Managed.
inline constexpr AssemblyIdentity kManagedLibrary = {
    L"kite.managed", {3, 9, 0, 0}, {0xC9, 0xCA, 0x73, 0x58, 0x77, 0x97, 0xB1, 0x08}};

// Why calls do not bind to an assembly of that name: it has to be of this version or a later one,
// to be signed with this key, and to have every member that is called. Empty when they do.
std::wstring reason_against_library(IMetaDataImport* metadata, bool strict);

// The same of a module that has been loaded.
std::wstring reason_against_library(ICorProfilerInfo* info, ModuleID module, bool strict);

// Why a method cannot be given the calls; empty when it can. The library is found once it is
// loaded, and by a module that was compiled against it and has its file beside it. In the .NET
// Framework, where it is installed for all programs and loaded when it is first called, nothing is
// asked. `metadata` is the module's, before anything is defined in it, and `module_name` its path.
std::wstring reason_against_calls(ICorProfilerInfo* info, IMetaDataAssemblyImport* metadata,
                                  std::wstring_view module_name, bool strict);

} // namespace corvane
