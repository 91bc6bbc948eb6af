#include "rewrite/references/managed_library.h"

#include "base/runtime_state.h"
#include "clr/com_ptr.h"
#include "rewrite/references/metadata_file.h"
#include "rewrite/references/needed_members.h"

#include <bcrypt.h>

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <mutex>

namespace corvane {

namespace {

constexpr const wchar_t* kNotLoaded =
    L"kite.managed is not loaded; name its file in DOTNET_STARTUP_HOOKS";

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

ComPtr<IMetaDataImport> metadata_of(ICorProfilerInfo* info, ModuleID module) {
    ComPtr<IMetaDataImport> metadata;
    if (FAILED(info->GetModuleMetaData(module, ofRead, __uuidof(IMetaDataImport),
                                       metadata.put_unknown()))) {
        metadata.reset();
    }
    return metadata;
}

// --- Identity

using KeyToken = std::array<std::uint8_t, 8>;

// The last eight bytes of the key's SHA-1, backwards (ECMA-335 II.6.3).
bool has_key(const void* key, ULONG size, const KeyToken& token) {
    std::array<std::uint8_t, 20> hash{};
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    if (BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA1_ALGORITHM, nullptr, 0) != 0) {
        return false;
    }
    const auto status =
        BCryptHash(algorithm, nullptr, 0, static_cast<PUCHAR>(const_cast<void*>(key)), size,
                   hash.data(), static_cast<ULONG>(hash.size()));
    BCryptCloseAlgorithmProvider(algorithm, 0);
    return status == 0 && std::equal(token.begin(), token.end(), hash.rbegin());
}

std::wstring reason_against_identity(IMetaDataImport* metadata) {
    ComPtr<IMetaDataAssemblyImport> assembly_import;
    mdAssembly assembly = mdTokenNil;
    const void* key = nullptr;
    ULONG key_size = 0;
    std::array<wchar_t, 64> name{}; // a longer one is another
    ULONG length = 0;
    ASSEMBLYMETADATA found{};
    if (FAILED(metadata->QueryInterface(__uuidof(IMetaDataAssemblyImport),
                                        assembly_import.put_void())) ||
        FAILED(assembly_import->GetAssemblyFromScope(&assembly)) ||
        FAILED(assembly_import->GetAssemblyProps(assembly, &key, &key_size, nullptr, name.data(),
                                                 static_cast<ULONG>(name.size()), &length, &found,
                                                 nullptr)) ||
        name.data() != std::wstring_view(kManagedLibrary.name)) {
        return L"is another assembly";
    }
    const std::array version = {found.usMajorVersion, found.usMinorVersion, found.usBuildNumber,
                                found.usRevisionNumber};
    if (version < kManagedLibrary.version) {
        return L"is of version " + std::to_wstring(version[0]) + L'.' +
               std::to_wstring(version[1]) + L'.' + std::to_wstring(version[2]) + L'.' +
               std::to_wstring(version[3]);
    }
    if (key_size == 0) {
        return L"is not signed";
    }
    return has_key(key, key_size, kManagedLibrary.public_key_token) ? L""
                                                                    : L"is signed with another key";
}

// --- Files

// A file's verdict is asked for once: the file that a program was started with is the one that it
// loads.
std::wstring verdict_of(const std::wstring& path,
                        const std::function<std::wstring(IMetaDataImport*)>& judge) {
    static std::mutex mutex;
    static auto& verdicts =
        *new std::map<std::wstring, std::wstring>(); // outlives compiling threads
    const std::lock_guard lock(mutex);
    const auto known = verdicts.find(path);
    if (known != verdicts.end()) {
        return known->second;
    }
    const ComPtr<IMetaDataImport> metadata = open_metadata_file(path);
    std::wstring reason = metadata ? judge(metadata.get()) : L"cannot be read as an assembly";
    return verdicts.emplace(path, std::move(reason)).first->second;
}

// Beside a module that was loaded from a file; empty for others, and where there is none.
std::wstring file_beside(std::wstring_view module_name, const wchar_t* name) {
    const std::size_t separator = module_name.find_last_of(L"\\/");
    if (separator == module_name.npos) {
        return {};
    }
    std::wstring file(module_name.substr(0, separator + 1));
    file += name;
    file += L".dll";
    return GetFileAttributesW(file.c_str()) != INVALID_FILE_ATTRIBUTES ? file : L"";
}

std::wstring lacks(std::wstring missing) {
    return missing.empty() ? missing : L"lacks " + missing;
}

std::wstring name_of(ICorProfilerInfo* info, ModuleID module) {
    std::array<wchar_t, 1024>
        name{}; // the runtime's own folder; a longer name has no file beside it
    ULONG length = 0;
    AssemblyID assembly = 0;
    return SUCCEEDED(info->GetModuleInfo(module, nullptr, static_cast<ULONG>(name.size()), &length,
                                         name.data(), &assembly))
               ? name.data()
               : L"";
}

// --- The two sides of a call

std::wstring reason_against_library_beside(IMetaDataAssemblyImport* metadata,
                                           std::wstring_view module_name, bool strict) {
    if (!refers_to_assembly(metadata, kManagedLibrary)) {
        return kNotLoaded;
    }
    const std::wstring file = file_beside(module_name, kManagedLibrary.name);
    if (file.empty()) {
        return kNotLoaded;
    }
    const std::wstring reason = verdict_of(file, [strict](IMetaDataImport* library) {
        return reason_against_library(library, strict);
    });
    return reason.empty() ? reason : file + L" " + reason;
}

// The runtime's own assemblies, which a trimmed program may have lost in part.
std::wstring reason_against_runtime(ICorProfilerInfo* info, bool strict) {
    static std::atomic<bool> serves = false;
    const ModuleID core = coreLibraryModuleId;
    if (serves || core == 0) {
        return {};
    }
    std::wstring reason;
    if (const ModuleID mscorlib = mscorlibModuleId; mscorlib != 0) {
        const ComPtr<IMetaDataImport> metadata = metadata_of(info, mscorlib);
        reason =
            metadata ? lacks(missing_from_mscorlib(metadata.get(), strict)) : L"cannot be read";
    } else if (const std::wstring file = file_beside(name_of(info, core), L"mscorlib");
               !file.empty()) {
        reason = verdict_of(file, [strict](IMetaDataImport* metadata) {
            return lacks(missing_from_mscorlib(metadata, strict));
        });
    } else {
        reason = L"is not there";
    }
    if (!reason.empty()) {
        return L"the program's mscorlib " + reason + L"; publish it without trimming";
    }
    const ComPtr<IMetaDataImport> metadata = metadata_of(info, core);
    reason =
        metadata ? lacks(missing_from_core_library(metadata.get(), strict)) : L"cannot be read";
    if (!reason.empty()) {
        return L"the program's core library " + reason + L"; publish it without trimming";
    }
    serves = true;
    return {};
}

} // namespace

std::wstring reason_against_library(IMetaDataImport* metadata, bool strict) {
    std::wstring reason = reason_against_identity(metadata);
    return reason.empty() ? lacks(missing_from_managed_library(metadata, strict)) : reason;
}

std::wstring reason_against_library(ICorProfilerInfo* info, ModuleID module, bool strict) {
    const ComPtr<IMetaDataImport> metadata = metadata_of(info, module);
    return metadata ? reason_against_library(metadata.get(), strict) : L"cannot be read";
}

std::wstring reason_against_calls(ICorProfilerInfo* info, IMetaDataAssemblyImport* metadata,
                                  std::wstring_view module_name, bool strict) {
    if (!is_core_clr(info)) {
        return {};
    }
    std::wstring reason = managedLibraryLoaded
                              ? std::wstring()
                              : reason_against_library_beside(metadata, module_name, strict);
    return reason.empty() ? reason_against_runtime(info, strict) : reason;
}

} // namespace corvane
