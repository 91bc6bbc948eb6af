#include "rewrite/assembly_reference.h"

#include "clr/com_ptr.h"

#include <algorithm>
#include <string_view>

namespace corvane {

namespace {

bool is_identity_of(IMetaDataAssemblyImport* metadata, mdAssemblyRef assembly,
                    const AssemblyIdentity& identity) {
    constexpr ULONG kNameRoom = 64; // every name that is looked for is far shorter
    std::array<wchar_t, kNameRoom> name{};
    ULONG length = 0;
    const void* key = nullptr;
    ULONG key_size = 0;
    ASSEMBLYMETADATA data{};
    const void* hash = nullptr;
    ULONG hash_size = 0;
    DWORD flags = 0;
    if (FAILED(metadata->GetAssemblyRefProps(assembly, &key, &key_size, name.data(), kNameRoom,
                                             &length, &data, &hash, &hash_size, &flags))) {
        return false;
    }
    const auto* const key_bytes = static_cast<const std::uint8_t*>(key);
    const std::array version = {data.usMajorVersion, data.usMinorVersion, data.usBuildNumber,
                                data.usRevisionNumber};
    // Of a culture only the length is told here: a neutral one has none but the terminator.
    return std::wstring_view(name.data()) == identity.name && version == identity.version &&
           data.cbLocale <= 1 && hash_size == 0 && flags == 0 &&
           std::equal(identity.public_key_token.begin(), identity.public_key_token.end(), key_bytes,
                      key_bytes + key_size);
}

bool find(IMetaDataAssemblyImport* metadata, const AssemblyIdentity& identity,
          mdAssemblyRef& assembly) {
    HCORENUM list = nullptr;
    mdAssemblyRef candidate = mdAssemblyRefNil;
    ULONG count = 0;
    bool found = false;
    while (!found && metadata->EnumAssemblyRefs(&list, &candidate, 1, &count) == S_OK &&
           count == 1) {
        found = is_identity_of(metadata, candidate, identity);
    }
    static_cast<void>(metadata->CloseEnum(list));
    if (found) {
        assembly = candidate;
    }
    return found;
}

} // namespace

HRESULT DefineAssemblyRefOnce(IMetaDataAssemblyEmit* emit, const AssemblyIdentity& identity,
                              mdAssemblyRef& assembly) {
    ComPtr<IMetaDataAssemblyImport> import;
    if (SUCCEEDED(emit->QueryInterface(__uuidof(IMetaDataAssemblyImport), import.put_void())) &&
        find(import.get(), identity, assembly)) {
        return S_OK;
    }
    ASSEMBLYMETADATA metadata{};
    metadata.usMajorVersion = identity.version[0];
    metadata.usMinorVersion = identity.version[1];
    metadata.usBuildNumber = identity.version[2];
    metadata.usRevisionNumber = identity.version[3];
    return emit->DefineAssemblyRef(identity.public_key_token.data(),
                                   static_cast<ULONG>(identity.public_key_token.size()),
                                   identity.name, &metadata, nullptr, 0, 0, &assembly);
}

} // namespace corvane
