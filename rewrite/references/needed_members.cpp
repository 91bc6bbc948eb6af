#include "rewrite/references/needed_members.h"

#include "clr/com_ptr.h"
#include "il/token_compression.h"
#include "rewrite/references/reference_signatures.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

namespace corvane {

namespace {

constexpr const wchar_t* kDirectives = L"Corvane.Instrumentation.InstrumentationDirectives";
constexpr const wchar_t* kInvokers = L"Corvane.Instrumentation.Invokers";
constexpr const wchar_t* kSpan = L"kite.managed.span";
constexpr const wchar_t* kException = L"System.Exception";
constexpr const wchar_t* kMethodBase = L"System.Reflection.MethodBase";

constexpr const wchar_t* kFromMscorlib[] = {
    kException,       kMethodBase,       L"System.Object", L"System.Boolean", L"System.Char",
    L"System.SByte",  L"System.Byte",    L"System.Int16",  L"System.UInt16",  L"System.Int32",
    L"System.UInt32", L"System.Int64",   L"System.UInt64", L"System.Single",  L"System.Double",
    L"System.IntPtr", L"System.UIntPtr",
};

// As the assembly itself names the type: by a definition or by a reference.
std::optional<CompressedToken> token_of(IMetaDataImport* metadata, std::wstring_view name) {
    mdToken token = mdTokenNil;
    if (SUCCEEDED(metadata->FindTypeDefByName(std::wstring(name).c_str(), mdTokenNil, &token))) {
        return compress_token_exactly(token);
    }
    constexpr ULONG kNameRoom = 64; // longer ones are none of those that are looked for
    std::array<wchar_t, kNameRoom> text{};
    ULONG length = 0;
    for (token = mdtTypeRef + 1; metadata->IsValidToken(token) != FALSE; ++token) {
        if (SUCCEEDED(metadata->GetTypeRefProps(token, nullptr, text.data(), kNameRoom, &length)) &&
            text.data() == name) {
            return compress_token_exactly(token);
        }
    }
    return std::nullopt;
}

// Empty if the member is there, with exactly this signature.
std::wstring missing(IMetaDataImport* metadata, const wchar_t* type, const wchar_t* name,
                     const SignatureBlob& signature) {
    mdTypeDef owner = mdTypeDefNil;
    if (FAILED(metadata->FindTypeDefByName(type, mdTokenNil, &owner))) {
        return type;
    }
    mdMethodDef member = mdMethodDefNil;
    const HRESULT hr = metadata->FindMethod(owner, name, signature.data(),
                                            static_cast<ULONG>(signature.size()), &member);
    return SUCCEEDED(hr) ? std::wstring() : std::wstring(type) + L"::" + name;
}

} // namespace

std::wstring missing_from_managed_library(IMetaDataImport* library) {
    constexpr BlobForm kForm = BlobForm::kExact;
    const auto directives = token_of(library, kDirectives);
    const auto exception = token_of(library, kException);
    const auto method_base = token_of(library, kMethodBase);
    if (!directives || !exception || !method_base) {
        return !directives ? kDirectives : !exception ? kException : kMethodBase;
    }
    const struct {
        const wchar_t* type;
        const wchar_t* name;
        SignatureBlob signature;
    } members[] = {
        {kDirectives, L".ctor", constructor_signature()},
        {kDirectives, L"GetIndexes", get_indexes_signature()},
        {kSpan, L"Log", log_signature()},
        {kSpan, L"Error", error_signature(*exception, kForm)},
        {kSpan, L"GenericPrologue", generic_prologue_signature(*directives, kForm)},
        {kSpan, L"GenericEpilogue", generic_epilogue_signature(*directives, kForm)},
        {kInvokers, L"ContainsKey", contains_key_signature()},
        {kInvokers, L"RegisterMethod", register_method_signature(*method_base, kForm)},
    };
    for (const auto& member : members) {
        std::wstring name = missing(library, member.type, member.name, member.signature);
        if (!name.empty()) {
            return name;
        }
    }
    return {};
}

std::wstring missing_from_mscorlib(IMetaDataImport* mscorlib) {
    ComPtr<IMetaDataAssemblyImport> assembly;
    if (FAILED(mscorlib->QueryInterface(__uuidof(IMetaDataAssemblyImport), assembly.put_void()))) {
        return L"its manifest";
    }
    const auto* const found = std::ranges::find_if(kFromMscorlib, [&](const wchar_t* name) {
        mdToken token = mdTokenNil;
        return FAILED(assembly->FindExportedTypeByName(name, mdTokenNil, &token)) &&
               FAILED(mscorlib->FindTypeDefByName(name, mdTokenNil, &token));
    });
    return found != std::end(kFromMscorlib) ? *found : L"";
}

std::wstring missing_from_core_library(IMetaDataImport* core) {
    const auto method_base = token_of(core, kMethodBase);
    return method_base ? missing(core, kMethodBase, L"GetCurrentMethod",
                                 get_current_method_signature(*method_base, BlobForm::kExact))
                       : kMethodBase;
}

} // namespace corvane
