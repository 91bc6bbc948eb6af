#include "rewrite/references/module_references.h"

#include "base/hresult_text.h"
#include "clr/com_ptr.h"
#include "clr/metadata.h"
#include "rewrite/references/assembly_reference.h"
#include "rewrite/references/instrumentation_references.h"
#include "rewrite/references/managed_library.h"
#include "rewrite/references/reference_signatures.h"
#include "rewrite/references/type_search.h"

namespace corvane {

namespace {

// Every later runtime takes these for its own.
constexpr AssemblyIdentity kMscorlib = {
    L"mscorlib", {2, 0, 0, 0}, {0xB7, 0x7A, 0x5C, 0x56, 0x19, 0x34, 0xE0, 0x89}};
constexpr AssemblyIdentity kSystem = {L"system", kMscorlib.version, kMscorlib.public_key_token};

constexpr const wchar_t* kMethodBase = L"System.Reflection.MethodBase";

// Makes the references one after the other. The first failure is logged and is the last: what
// follows it answers false without doing anything.
class Definer {
public:
    Definer(RewriteContext& context, ICorProfilerInfo* info, const method_info& method)
        : context_(context),
          info_(info),
          module_(method.module_id),
          module_name_(method.module_name) {}

    [[nodiscard]] HRESULT result() const { return result_; }

    bool open() {
        constexpr const wchar_t* kNoMetadata = L"Failed to get module metadata interface (%s)";
        return succeeded(info_->GetModuleMetaData(module_, ofWrite, __uuidof(IMetaDataEmit),
                                                  emit_.put_unknown()),
                         kNoMetadata) &&
               succeeded(emit_.query(assembly_emit_),
                         L"Failed to query IMetaDataAssemblyEmit interface (%s)") &&
               succeeded(context_.info->GetModuleMetaData(
                             module_, ofRead, __uuidof(IMetaDataImport), import_.put_unknown()),
                         kNoMetadata);
    }

    // The result stays that of the call before.
    bool can_find_library() {
        ComPtr<IMetaDataAssemblyImport> assembly_import;
        const std::wstring reason =
            SUCCEEDED(emit_.query(assembly_import))
                ? reason_against_calls(info_, assembly_import.get(), module_name_)
                : L"its module has no manifest";
        if (!reason.empty()) {
            context_.log.log(1, L"Left as it is: %s", reason.c_str());
        }
        return reason.empty();
    }

    bool assembly(const AssemblyIdentity& identity, mdAssemblyRef& token, const wchar_t* message) {
        return succeeded(define_assembly_ref_once(assembly_emit_.get(), identity, token), message);
    }

    bool type(mdAssemblyRef scope, const wchar_t* name, mdTypeRef& token, const wchar_t* message) {
        return succeeded(emit_->DefineTypeRefByName(scope, name, &token), message);
    }

    bool member(mdTypeRef parent, const wchar_t* name, const SignatureBlob& signature,
                mdMemberRef& token, const wchar_t* message) {
        return succeeded(emit_->DefineMemberRef(parent, name, signature.data(),
                                                static_cast<ULONG>(signature.size()), &token),
                         message);
    }

    // The result stays that of the call before.
    bool compress(mdTypeRef type, BlobForm form, CompressedToken& compressed,
                  const wchar_t* message) {
        const auto token = form == BlobForm::kExact ? std::optional(compress_token_exactly(type))
                                                    : compress_token(type);
        if (!token) {
            context_.log.log(1, L"%s", message);
            return false;
        }
        compressed = *token;
        return true;
    }

    bool find(const wchar_t* name, mdTypeRef& token, const wchar_t* message) {
        return succeeded(find_type_ref(import_.get(), name, context_.log, token), message);
    }

private:
    bool succeeded(HRESULT hr, const wchar_t* message) {
        result_ = hr;
        if (FAILED(hr)) {
            log_result(context_.log, message, hr);
        }
        return SUCCEEDED(hr);
    }

    RewriteContext& context_;
    ICorProfilerInfo* info_;
    ModuleID module_;
    std::wstring_view module_name_;
    HRESULT result_ = S_OK;
    ComPtr<IMetaDataEmit> emit_;
    ComPtr<IMetaDataAssemblyEmit> assembly_emit_;
    ComPtr<IMetaDataImport> import_;
};

// Some texts name another thing than the one that failed; they are what people search for.
bool define(Definer& definer, bool strict, InstrumentationReferences& to) {
    mdAssemblyRef kite = mdAssemblyRefNil;
    mdAssemblyRef system = mdAssemblyRefNil;
    mdTypeRef argument_callback = mdTypeRefNil;
    mdTypeRef span = mdTypeRefNil;
    mdTypeRef invokers = mdTypeRefNil;
    mdTypeRef method_base = mdTypeRefNil;
    mdTypeRef method_data = mdTypeRefNil;
    mdTypeRef method_base_in_signatures = mdTypeRefNil;
    CompressedToken directives_token;
    CompressedToken exception_token;
    const BlobForm form = strict ? BlobForm::kExact : BlobForm::kFixedLength;

    constexpr const wchar_t* kNoAssembly = L"Failed to query module token (%s)";
    constexpr const wchar_t* kNoSpan = L"Failed to get kite.managed.span class reference (%s)";
    if (!(definer.open() && definer.can_find_library() &&
          definer.assembly(kManagedLibrary, kite, kNoAssembly) &&
          definer.assembly(kMscorlib, to.mscorlib, kNoAssembly) &&
          definer.type(to.mscorlib, L"System.Exception", to.exception_type, kNoSpan) &&
          definer.type(to.mscorlib, L"System.Object", to.object_type,
                       L"Failed to get System.Object class reference (%s)") &&
          definer.type(kite, L"Corvane.Instrumentation.InstrumentationDirectives",
                       to.directives_type,
                       L"Failed to get Corvane.Instrumentation.InstrumentationDirectives class "
                       L"reference (%s)") &&
          definer.type(kite, L"Corvane.Instrumentation.MethodArgumentCallback", argument_callback,
                       L"Failed to get Corvane.Instrumentation.MethodArgumentCallback class "
                       L"reference (%s)") &&
          definer.type(kite, L"kite.managed.span", span, kNoSpan) &&
          definer.type(kite, L"Corvane.Instrumentation.Invokers", invokers,
                       L"Failed to get Corvane.Instrumentation.Invokers class reference (%s)") &&
          definer.type(to.mscorlib, kMethodBase, method_base,
                       L"Failed to get System.Reflection.MethodBase class reference (%s)") &&
          definer.member(to.directives_type, L".ctor", constructor_signature(),
                         to.directives_constructor,
                         L"Failed to get Corvane.Instrumentation.InstrumentationDirectives::ctor() "
                         L"construction method reference (%s)") &&
          definer.member(to.directives_type, L"GetIndexes", get_indexes_signature(), to.get_indexes,
                         L"Failed to get Corvane.Instrumentation.InstrumentationDirectives::"
                         L"GetIndexes() method reference (%s)") &&
          definer.type(kite, L"Corvane.Instrumentation.MethodData", method_data,
                       L"Failed to get Corvane.Instrumentation.MethodData class reference (%s)") &&
          definer.assembly(kSystem, system,
                           L"Failed to query module token of System.dll  Version=4.0.0.0, "
                           L"Culture=neutral, PublicKeyToken=b77a5c561934e089) (%s)") &&
          definer.member(
              span, L"Log", log_signature(), to.log,
              L"Failed to get System.Diagnostics.Trace::WriteLine(string message) method "
              L"reference (%s)") &&
          definer.compress(to.directives_type, form, directives_token,
                           L"Failed to compress token for "
                           L"Corvane.Instrumentation.InstrumentationDirectives type. Token size is "
                           L"bigger than expected.") &&
          definer.compress(to.exception_type, form, exception_token,
                           L"Failed to compress token for System.Exception type. Token size is "
                           L"bigger than expected.") &&
          definer.member(span, L"Error", error_signature(exception_token, form), to.error,
                         L"Failed to get span::Error() method reference (%s)") &&
          definer.find(kMethodBase, method_base_in_signatures,
                       L"Failed to get token for System.Reflection.MethodBase type (%s)"))) {
        return false;
    }

    const CompressedToken exact = compress_token_exactly(method_base_in_signatures);
    const CompressedToken method_base_token =
        strict ? exact : compress_token_to_two_bytes(method_base_in_signatures);
    to.register_method_binds = strict || exact.bytes().size() == 2;

    return definer.member(span, L"GenericPrologue",
                          generic_prologue_signature(directives_token, form), to.generic_prologue,
                          L"Failed to get span::GenericPrologue() method reference (%s)") &&
           definer.member(span, L"GenericEpilogue",
                          generic_epilogue_signature(directives_token, form), to.generic_epilogue,
                          L"Failed to get span::GenericEpilogue() method reference (%s)") &&
           definer.member(invokers, L"ContainsKey", contains_key_signature(), to.contains_key,
                          L"Failed to get Corvane.Instrumentation.Invokers::ContainsKey() method "
                          L"reference (%s)") &&
           definer.member(method_base, L"GetCurrentMethod",
                          get_current_method_signature(method_base_token, form),
                          to.get_current_method,
                          L"Failed to get System.Reflection.MethodBase::GetCurrentMethod() method "
                          L"reference (%s)") &&
           definer.member(invokers, L"RegisterMethod",
                          register_method_signature(method_base_token, form), to.register_method,
                          L"Failed to get Corvane.Instrumentation.Invokers::Register_Method() "
                          L"method reference (%s)");
}

} // namespace

DefinedReferences DefineInstrumentationReferences(RewriteContext& context, ICorProfilerInfo* info,
                                                  const method_info& method, bool strict) {
    Definer definer(context, info, method);
    InstrumentationReferences references;
    const bool is_whole = define(definer, strict, references);
    return {definer.result(), is_whole ? std::optional(references) : std::nullopt};
}

} // namespace corvane
