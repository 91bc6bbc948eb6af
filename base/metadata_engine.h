// The runtime's own metadata engine, for metadata that is read apart from the runtime's queries.
#pragma once

#include "clr/com_ptr.h"
#include "clr/metadata.h"

namespace corvane {

// Null in a process without the engine: of .NET it is part of the runtime's library, or of a
// program that the runtime is linked into. What it opens may be read by several threads at once.
ComPtr<IMetaDataDispenserEx> metadata_engine();

} // namespace corvane
