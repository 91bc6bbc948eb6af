#include "rewrite/references/assembly_reference.h"

#include "clr/com_ptr.h"
#include "clr/metadata_enumeration.h"

#include <algorithm>
#include <mutex>

namespace corvane {

namespace {

struct Properties {
    std::array<wchar_t, 64> name{}; // every name that is looked for is shorter
    const void* key = nullptr;
    ULONG key_size = 0;
    ASSEMBLYMETADATA metadata{};
    ULONG hash_size = 0;
    DWORD flags = 0;
};

// The first reference that `is_sought` says is, nil if there is none.
template <class IsSought>
mdAssemblyRef find(IMetaDataAssemblyImport* metadata, const IsSought& is_sought) {
    MetadataEnumeration list(metadata);
    mdAssemblyRef candidate = mdAssemblyRefNil;
    ULONG count = 0;
    mdAssemblyRef found = mdTokenNil;
    while (found == mdTokenNil &&
           metadata->EnumAssemblyRefs(list.put(), &candidate, 1, &count) == S_OK && count == 1) {
        Properties of;
        ULONG length = 0;
        const void* hash = nullptr;
        if (SUCCEEDED(
                metadata->GetAssemblyRefProps(candidate, &of.key, &of.key_size, of.name.data(),
                                              static_cast<ULONG>(of.name.size()), &length,
                                              &of.metadata, &hash, &of.hash_size, &of.flags)) &&
            is_sought(of)) {
            found = candidate;
        }
    }
    return found;
}

std::array<USHORT, 4> version_of(const Properties& of) {
    return {of.metadata.usMajorVersion, of.metadata.usMinorVersion, of.metadata.usBuildNumber,
            of.metadata.usRevisionNumber};
}

bool has_name_and_key(const Properties& of, const AssemblyIdentity& identity) {
    const auto* const key = static_cast<const std::uint8_t*>(of.key);
    return std::wstring_view(of.name.data()) == identity.name &&
           std::equal(identity.public_key_token.begin(), identity.public_key_token.end(), key,
                      key + of.key_size);
}

bool is_same(const Properties& of, const AssemblyIdentity& identity) {
    // Of a culture only the length is told here: a neutral one has none but the terminator.
    return has_name_and_key(of, identity) && version_of(of) == identity.version &&
           of.metadata.cbLocale <= 1 && of.hash_size == 0 && of.flags == 0;
}

} // namespace

bool refers_to_assembly(IMetaDataAssemblyImport* metadata, const AssemblyIdentity& identity) {
    return find(metadata, [&](const Properties& of) {
               return has_name_and_key(of, identity) && version_of(of) >= identity.version;
           }) != mdTokenNil;
}

HRESULT define_assembly_ref_once(IMetaDataAssemblyEmit* emit, const AssemblyIdentity& identity,
                                 mdAssemblyRef& assembly) {
    // Two methods of a module may be compiled at once. No code of the program runs in here.
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    ComPtr<IMetaDataAssemblyImport> import;
    if (SUCCEEDED(emit->QueryInterface(__uuidof(IMetaDataAssemblyImport), import.put_void()))) {
        const mdAssemblyRef there =
            find(import.get(), [&](const Properties& of) { return is_same(of, identity); });
        if (there != mdTokenNil) {
            assembly = there;
            return S_OK;
        }
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
