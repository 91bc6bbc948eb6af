// Searches an assembly for the members that injected code names in it. A trimmed program lacks
// every member that its own code does not name, and a method with a call of a missing member does
// not compile.
#pragma once

#include "clr/metadata.h"

#include <string>

namespace corvane {

// Each returns the first that is missing, by its full name; empty when all are there.

// In the managed library.
std::wstring missing_from_managed_library(IMetaDataImport* library, bool strict);

// In mscorlib, which in .NET only says where the types are. Every type that a value may be boxed as
// counts, because strict IL refers to those that the module does not name.
std::wstring missing_from_mscorlib(IMetaDataImport* mscorlib, bool strict);

// In the assembly that defines the runtime's own types.
std::wstring missing_from_core_library(IMetaDataImport* core, bool strict);

} // namespace corvane
