#include "rewrite/references/managed_library.h"

#include "base/runtime_state.h"
#include "clr/com_ptr.h"

#include <array>
#include <string>

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

bool is_beside(std::wstring_view module_name) {
    const std::size_t separator = module_name.find_last_of(L"\\/");
    if (separator == module_name.npos) {
        return false; // a module that was loaded from memory
    }
    std::wstring file(module_name.substr(0, separator + 1));
    file += kManagedLibrary.name;
    file += L".dll";
    return GetFileAttributesW(file.c_str()) != INVALID_FILE_ATTRIBUTES;
}

} // namespace

bool is_managed_library(ICorProfilerInfo* info, ModuleID module, const DebugLog& log) {
    ComPtr<IMetaDataAssemblyImport> metadata;
    mdAssembly assembly = mdTokenNil;
    const void* key = nullptr;
    ULONG key_size = 0;
    ASSEMBLYMETADATA found{};
    if (FAILED(info->GetModuleMetaData(module, ofRead, __uuidof(IMetaDataAssemblyImport),
                                       metadata.put_unknown())) ||
        !metadata || FAILED(metadata->GetAssemblyFromScope(&assembly)) ||
        FAILED(metadata->GetAssemblyProps(assembly, &key, &key_size, nullptr, nullptr, 0, nullptr,
                                          &found, nullptr))) {
        return false;
    }
    const std::array version = {found.usMajorVersion, found.usMinorVersion, found.usBuildNumber,
                                found.usRevisionNumber};
    if (version >= kManagedLibrary.version && key_size != 0) {
        return true;
    }
    log.log(1,
            L"A kite.managed that cannot be called was loaded, of version %u.%u.%u.%u%s; the one "
            L"that came with this file has to be",
            version[0], version[1], version[2], version[3], key_size == 0 ? L", unsigned" : L"");
    return false;
}

bool can_find_managed_library(ICorProfilerInfo* info, IMetaDataAssemblyImport* metadata,
                              std::wstring_view module_name) {
    return managedLibraryLoaded || !is_core_clr(info) ||
           (refers_to_assembly(metadata, kManagedLibrary) && is_beside(module_name));
}

} // namespace corvane
