#include "rewrite/references/needed_members.h"

#include "clr/com_ptr.h"
#include "rewrite/references/reference_signatures.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace corvane {

namespace {

constexpr const wchar_t* kDirectives = L"Corvane.Instrumentation.InstrumentationDirectives";
constexpr const wchar_t* kInvokers = L"Corvane.Instrumentation.Invokers";
constexpr const wchar_t* kSpan = L"kite.managed.span";
constexpr const wchar_t* kException = L"System.Exception";
constexpr const wchar_t* kArray = L"System.Array";
constexpr const wchar_t* kMethodBase = L"System.Reflection.MethodBase";

constexpr const wchar_t* kFromMscorlib[] = {
    kException,       kMethodBase,       L"System.Object", L"System.Boolean", L"System.Char",
    L"System.SByte",  L"System.Byte",    L"System.Int16",  L"System.UInt16",  L"System.Int32",
    L"System.UInt32", L"System.Int64",   L"System.UInt64", L"System.Single",  L"System.Double",
    L"System.IntPtr", L"System.UIntPtr",
};

// As the assembly itself names the type: by a definition or by a reference. Nil if it does not.
mdToken token_of(IMetaDataImport* metadata, const wchar_t* name) {
    mdToken token = mdTokenNil;
    if (SUCCEEDED(metadata->FindTypeDefByName(name, mdTokenNil, &token))) {
        return token;
    }
    constexpr ULONG kNameRoom = 64; // longer ones are none of those that are looked for
    std::array<wchar_t, kNameRoom> text{};
    ULONG length = 0;
    for (token = mdtTypeRef + 1; metadata->IsValidToken(token) != FALSE; ++token) {
        if (SUCCEEDED(metadata->GetTypeRefProps(token, nullptr, text.data(), kNameRoom, &length)) &&
            text.data() == std::wstring_view(name)) {
            return token;
        }
    }
    return mdTokenNil;
}

struct Member {
    const wchar_t* owner;
    const wchar_t* name;
    std::span<const std::uint8_t> signature;
    const wchar_t* type_in_signature = nullptr;
};

// Empty if the member is there, with exactly this signature.
std::wstring missing(IMetaDataImport* metadata, const Member& member) {
    mdTypeDef owner = mdTypeDefNil;
    if (FAILED(metadata->FindTypeDefByName(member.owner, mdTokenNil, &owner))) {
        return member.owner;
    }
    mdToken type = mdTokenNil;
    if (member.type_in_signature != nullptr) {
        type = token_of(metadata, member.type_in_signature);
        if (type == mdTokenNil) {
            return member.type_in_signature;
        }
    }
    const auto blob = signature_blob(member.signature, type, BlobForm::kExact);
    mdMethodDef found = mdMethodDefNil;
    const HRESULT hr = metadata->FindMethod(owner, member.name, blob.data(),
                                            static_cast<ULONG>(blob.size()), &found);
    return SUCCEEDED(hr) ? std::wstring() : std::wstring(member.owner) + L"::" + member.name;
}

} // namespace

std::wstring missing_from_managed_library(IMetaDataImport* library, bool strict) {
    namespace signature = reference_signature;
    static constexpr Member kMembers[] = {
        {kDirectives, L".ctor", signature::kConstructor},
        {kDirectives, L"GetIndexes", signature::kGetIndexes},
        {kSpan, L"Log", signature::kLog},
        {kSpan, L"Error", signature::kError, kException},
        {kSpan, L"GenericPrologue", signature::kGenericPrologue, kDirectives},
        {kSpan, L"GenericEpilogue", signature::kGenericEpilogue, kDirectives},
        {kInvokers, L"ContainsKey", signature::kContainsKey},
        {kInvokers, L"RegisterMethod", signature::kRegisterMethod, kMethodBase},
    };
    for (const Member& member : kMembers) {
        std::wstring name = missing(library, member);
        if (!name.empty()) {
            return name;
        }
    }
    return strict ? missing(library, {kInvokers, L"HasListeners", signature::kHasListeners})
                  : std::wstring();
}

std::wstring missing_from_mscorlib(IMetaDataImport* mscorlib, bool strict) {
    ComPtr<IMetaDataAssemblyImport> assembly;
    if (FAILED(mscorlib->QueryInterface(__uuidof(IMetaDataAssemblyImport), assembly.put_void()))) {
        return L"its manifest";
    }
    const auto is_missing = [&](const wchar_t* name) {
        mdToken token = mdTokenNil;
        return FAILED(assembly->FindExportedTypeByName(name, mdTokenNil, &token)) &&
               FAILED(mscorlib->FindTypeDefByName(name, mdTokenNil, &token));
    };
    const auto* const found = std::ranges::find_if(kFromMscorlib, is_missing);
    if (found != std::end(kFromMscorlib)) {
        return *found;
    }
    return strict && is_missing(kArray) ? kArray : L"";
}

std::wstring missing_from_core_library(IMetaDataImport* core, bool strict) {
    namespace signature = reference_signature;
    std::wstring name = missing(
        core, {kMethodBase, L"GetCurrentMethod", signature::kGetCurrentMethod, kMethodBase});
    if (name.empty() && strict) {
        name = missing(core, {kArray, L"IndexOf", signature::kIndexOf});
    }
    return name;
}

} // namespace corvane
