// Finds types by their full name, among those that a module names or defines.
#pragma once

#include "base/debug_log.h"
#include "clr/metadata.h"

namespace corvane {

// The first of the module's type references with exactly this name. Every one that is read on the
// way is logged. CLDB_E_RECORD_NOTFOUND when there is none, else what the metadata answers to being
// enumerated.
HRESULT find_type_ref(IMetaDataImport* metadata, const wchar_t* name, const DebugLog& log,
                      mdTypeRef& type);

} // namespace corvane
