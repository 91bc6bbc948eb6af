// The metadata of a file that the runtime has not loaded, read by the runtime's own engine.
#pragma once

#include "clr/com_ptr.h"
#include "clr/metadata.h"

#include <string>

namespace corvane {

// Null where there is no such file, where it holds no metadata, and in a process without the
// engine: of .NET it is part of the runtime's library, or of a program that the runtime is linked
// into. Takes a millisecond or more.
ComPtr<IMetaDataImport> open_metadata_file(const std::wstring& path);

} // namespace corvane
