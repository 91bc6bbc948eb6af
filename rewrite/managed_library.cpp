#include "rewrite/managed_library.h"

#include "clr/com_ptr.h"
#include "profiler/runtime_state.h"
#include "rewrite/assembly_reference.h"

namespace corvane {

namespace {

// The runtimes in which a library has to be named to a program to be found by it.
bool is_core_clr(ICorProfilerInfo* info) {
    ComPtr<ICorProfilerInfo3> info3;
    USHORT instance = 0;
    COR_PRF_RUNTIME_TYPE type = COR_PRF_DESKTOP_CLR;
    USHORT version[4] = {};
    return SUCCEEDED(info->QueryInterface(__uuidof(ICorProfilerInfo3), info3.put_void())) &&
           SUCCEEDED(info3->GetRuntimeInformation(&instance, &type, &version[0], &version[1],
                                                  &version[2], &version[3], 0, nullptr, nullptr)) &&
           type == COR_PRF_CORE_CLR;
}

} // namespace

bool can_find_managed_library(ICorProfilerInfo* info, IMetaDataAssemblyImport* metadata) {
    return managedLibraryLoaded || refers_to_assembly(metadata, kManagedLibrary) ||
           !is_core_clr(info);
}

} // namespace corvane
