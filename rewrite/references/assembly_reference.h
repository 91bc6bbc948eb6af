// References of a module to another assembly.
#pragma once

#include "clr/metadata.h"

#include <array>
#include <cstdint>

namespace corvane {

// Culture neutral, no hash, no flags.
struct AssemblyIdentity {
    const wchar_t* name;
    std::array<USHORT, 4> version; // major, minor, build, revision
    std::array<std::uint8_t, 8> public_key_token;
};

// Whether the module refers to this assembly, or to a later version of it.
bool refers_to_assembly(IMetaDataAssemblyImport* metadata, const AssemblyIdentity& identity);

// The module's reference to exactly this assembly, defined if there is none: unlike type and member
// references, equal assembly references are not made one by the metadata, and every type reference
// would be made again with them.
HRESULT define_assembly_ref_once(IMetaDataAssemblyEmit* emit, const AssemblyIdentity& identity,
                                 mdAssemblyRef& assembly);

} // namespace corvane
