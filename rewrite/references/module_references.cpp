#include "rewrite/references/module_references.h"

#include "base/hresult_text.h"
#include "clr/com_ptr.h"
#include "clr/metadata.h"
#include "rewrite/references/assembly_reference.h"
#include "rewrite/references/instrumentation_references.h"
#include "rewrite/references/known_references.h"
#include "rewrite/references/managed_library.h"
#include "rewrite/references/reference_signatures.h"
#include "rewrite/references/type_search.h"

#include <algorithm>
#include <span>
#include <variant>

namespace corvane {

namespace {

// Every later runtime takes these for its own.
constexpr AssemblyIdentity kMscorlib = {
    L"mscorlib", {2, 0, 0, 0}, {0xB7, 0x7A, 0x5C, 0x56, 0x19, 0x34, 0xE0, 0x89}};
constexpr AssemblyIdentity kSystem = {L"system", kMscorlib.version, kMscorlib.public_key_token};

// All that is defined, in one module.
struct Tokens : InstrumentationReferences {
    mdAssemblyRef kite = mdAssemblyRefNil;
    mdAssemblyRef system = mdAssemblyRefNil;
    mdTypeRef argument_callback = mdTypeRefNil;
    mdTypeRef span = mdTypeRefNil;
    mdTypeRef invokers = mdTypeRefNil;
    mdTypeRef method_base = mdTypeRefNil;
    mdTypeRef method_data = mdTypeRefNil;
    mdTypeRef method_base_in_signatures = mdTypeRefNil;
    mdTypeRef array = mdTypeRefNil;
    mdMemberRef index_of_any = mdMemberRefNil;
};

using Token = mdToken Tokens::*;

// The kinds of steps. Each sets its own token.
struct AssemblyRef {
    Token token;
    const AssemblyIdentity& identity;
};
struct TypeRef {
    Token token;
    Token scope;
    const wchar_t* name;
};
struct MemberRef {
    Token token;
    Token parent;
    const wchar_t* name;
    std::span<const std::uint8_t> signature;
    Token type_in_signature = nullptr;
};
// The first type reference of the module with that name, whoever defined it.
struct FirstTypeRef {
    Token token;
    const wchar_t* name;
};
// A generic method with its type arguments.
struct MethodSpec {
    Token token;
    Token method;
    std::span<const std::uint8_t> arguments;
};
// Sets none: makes sure that signatures of fixed length have room for the type.
struct RoomFor {
    Token type;
};

struct Step {
    std::variant<AssemblyRef, TypeRef, MemberRef, FirstTypeRef, MethodSpec, RoomFor> what;
    const wchar_t* message; // of its failure
};

constexpr const wchar_t* kMethodBase = L"System.Reflection.MethodBase";
constexpr const wchar_t* kNoAssembly = L"Failed to query module token (%s)";
constexpr const wchar_t* kNoSpan = L"Failed to get kite.managed.span class reference (%s)";

// In the order in which they are defined. Some texts name another thing than the one that failed;
// they are what people search for.
namespace signature = reference_signature;
constexpr Step kSteps[] = {
    {AssemblyRef{&Tokens::kite, kManagedLibrary}, kNoAssembly},
    {AssemblyRef{&Tokens::mscorlib, kMscorlib}, kNoAssembly},
    {TypeRef{&Tokens::exception_type, &Tokens::mscorlib, L"System.Exception"}, kNoSpan},
    {TypeRef{&Tokens::object_type, &Tokens::mscorlib, L"System.Object"},
     L"Failed to get System.Object class reference (%s)"},
    {TypeRef{&Tokens::directives_type, &Tokens::kite,
             L"Corvane.Instrumentation.InstrumentationDirectives"},
     L"Failed to get Corvane.Instrumentation.InstrumentationDirectives class reference (%s)"},
    {TypeRef{&Tokens::argument_callback, &Tokens::kite,
             L"Corvane.Instrumentation.MethodArgumentCallback"},
     L"Failed to get Corvane.Instrumentation.MethodArgumentCallback class reference (%s)"},
    {TypeRef{&Tokens::span, &Tokens::kite, L"kite.managed.span"}, kNoSpan},
    {TypeRef{&Tokens::invokers, &Tokens::kite, L"Corvane.Instrumentation.Invokers"},
     L"Failed to get Corvane.Instrumentation.Invokers class reference (%s)"},
    {TypeRef{&Tokens::method_base, &Tokens::mscorlib, kMethodBase},
     L"Failed to get System.Reflection.MethodBase class reference (%s)"},
    {MemberRef{&Tokens::directives_constructor, &Tokens::directives_type, L".ctor",
               signature::kConstructor},
     L"Failed to get Corvane.Instrumentation.InstrumentationDirectives::ctor() construction method "
     L"reference (%s)"},
    {MemberRef{&Tokens::get_indexes, &Tokens::directives_type, L"GetIndexes",
               signature::kGetIndexes},
     L"Failed to get Corvane.Instrumentation.InstrumentationDirectives::GetIndexes() method "
     L"reference (%s)"},
    {TypeRef{&Tokens::method_data, &Tokens::kite, L"Corvane.Instrumentation.MethodData"},
     L"Failed to get Corvane.Instrumentation.MethodData class reference (%s)"},
    {AssemblyRef{&Tokens::system, kSystem},
     L"Failed to query module token of System.dll  Version=4.0.0.0, Culture=neutral, "
     L"PublicKeyToken=b77a5c561934e089) (%s)"},
    {MemberRef{&Tokens::log, &Tokens::span, L"Log", signature::kLog},
     L"Failed to get System.Diagnostics.Trace::WriteLine(string message) method reference (%s)"},
    {RoomFor{&Tokens::directives_type},
     L"Failed to compress token for Corvane.Instrumentation.InstrumentationDirectives type. Token "
     L"size is bigger than expected."},
    {RoomFor{&Tokens::exception_type},
     L"Failed to compress token for System.Exception type. Token size is bigger than expected."},
    {MemberRef{&Tokens::error, &Tokens::span, L"Error", signature::kError, &Tokens::exception_type},
     L"Failed to get span::Error() method reference (%s)"},
    {FirstTypeRef{&Tokens::method_base_in_signatures, kMethodBase},
     L"Failed to get token for System.Reflection.MethodBase type (%s)"},
    {MemberRef{&Tokens::generic_prologue, &Tokens::span, L"GenericPrologue",
               signature::kGenericPrologue, &Tokens::directives_type},
     L"Failed to get span::GenericPrologue() method reference (%s)"},
    {MemberRef{&Tokens::generic_epilogue, &Tokens::span, L"GenericEpilogue",
               signature::kGenericEpilogue, &Tokens::directives_type},
     L"Failed to get span::GenericEpilogue() method reference (%s)"},
    {MemberRef{&Tokens::contains_key, &Tokens::invokers, L"ContainsKey", signature::kContainsKey},
     L"Failed to get Corvane.Instrumentation.Invokers::ContainsKey() method reference (%s)"},
    {MemberRef{&Tokens::get_current_method, &Tokens::method_base, L"GetCurrentMethod",
               signature::kGetCurrentMethod, &Tokens::method_base_in_signatures},
     L"Failed to get System.Reflection.MethodBase::GetCurrentMethod() method reference (%s)"},
    {MemberRef{&Tokens::register_method, &Tokens::invokers, L"RegisterMethod",
               signature::kRegisterMethod, &Tokens::method_base_in_signatures},
     L"Failed to get Corvane.Instrumentation.Invokers::Register_Method() method reference (%s)"},
};

constexpr const wchar_t* kNoIndexOf =
    L"Failed to get System.Array::IndexOf() method reference (%s)";
constexpr Step kStrictSteps[] = {
    {MemberRef{&Tokens::has_listeners, &Tokens::invokers, L"HasListeners",
               signature::kHasListeners},
     L"Failed to get Corvane.Instrumentation.Invokers::HasListeners() method reference (%s)"},
    {TypeRef{&Tokens::array, &Tokens::mscorlib, L"System.Array"}, kNoIndexOf},
    {MemberRef{&Tokens::index_of_any, &Tokens::array, L"IndexOf", signature::kIndexOf}, kNoIndexOf},
    {MethodSpec{&Tokens::index_of, &Tokens::index_of_any, signature::kOfInt32}, kNoIndexOf},
};

// The metadata of a module, and what has been defined in it. A step that answers false has logged
// why and is the last.
class Definer {
public:
    Definer(const DebugLog& log, BlobForm form) : log_(log), form_(form) {}

    // Of the last call of the metadata.
    [[nodiscard]] HRESULT result() const { return result_; }
    [[nodiscard]] const std::wstring& reason() const { return reason_; }

    bool open(ICorProfilerInfo* writing, ICorProfilerInfo* reading, ModuleID module) {
        constexpr const wchar_t* kNoMetadata = L"Failed to get module metadata interface (%s)";
        return succeeded(writing->GetModuleMetaData(module, ofWrite, __uuidof(IMetaDataEmit),
                                                    emit_.put_unknown()),
                         kNoMetadata) &&
               succeeded(emit_.query(assembly_emit_),
                         L"Failed to query IMetaDataAssemblyEmit interface (%s)") &&
               succeeded(reading->GetModuleMetaData(module, ofRead, __uuidof(IMetaDataImport),
                                                    import_.put_unknown()),
                         kNoMetadata);
    }

    bool can_find_library(ICorProfilerInfo* info, std::wstring_view module_name) {
        ComPtr<IMetaDataAssemblyImport> assembly_import;
        const std::wstring reason =
            SUCCEEDED(emit_.query(assembly_import))
                ? reason_against_calls(info, assembly_import.get(), module_name,
                                       form_ == BlobForm::kExact)
                : L"its module has no manifest";
        if (!reason.empty()) {
            log_.log(1, L"Left as it is: %s", reason.c_str());
            reason_ = reason;
        }
        return reason.empty();
    }

    std::optional<InstrumentationReferences> define_all() {
        if (!define_each(kSteps) || (form_ == BlobForm::kExact && !define_each(kStrictSteps))) {
            return std::nullopt;
        }
        tokens_.register_method_binds =
            form_ == BlobForm::kExact ||
            compress_token_exactly(tokens_.method_base_in_signatures).bytes().size() == 2;
        return tokens_;
    }

private:
    bool define_each(std::span<const Step> steps) {
        return std::ranges::all_of(steps, [&](const Step& step) {
            return std::visit([&](const auto& what) { return define(what, step.message); },
                              step.what);
        });
    }

    bool define(const AssemblyRef& assembly, const wchar_t* message) {
        return succeeded(define_assembly_ref_once(assembly_emit_.get(), assembly.identity,
                                                  tokens_.*assembly.token),
                         message);
    }

    bool define(const TypeRef& type, const wchar_t* message) {
        return succeeded(
            emit_->DefineTypeRefByName(tokens_.*type.scope, type.name, &(tokens_.*type.token)),
            message);
    }

    bool define(const MemberRef& member, const wchar_t* message) {
        const mdToken type =
            member.type_in_signature == nullptr ? mdTokenNil : tokens_.*member.type_in_signature;
        const auto blob = signature_blob(member.signature, type, form_);
        return succeeded(emit_->DefineMemberRef(tokens_.*member.parent, member.name, blob.data(),
                                                static_cast<ULONG>(blob.size()),
                                                &(tokens_.*member.token)),
                         message);
    }

    bool define(const MethodSpec& method, const wchar_t* message) {
        ComPtr<IMetaDataEmit2> emit2;
        return succeeded(emit_.query(emit2), message) &&
               succeeded(emit2->DefineMethodSpec(tokens_.*method.method, method.arguments.data(),
                                                 static_cast<ULONG>(method.arguments.size()),
                                                 &(tokens_.*method.token)),
                         message);
    }

    bool define(const FirstTypeRef& type, const wchar_t* message) {
        return succeeded(find_type_ref(import_.get(), type.name, log_, tokens_.*type.token),
                         message);
    }

    bool define(const RoomFor& room, const wchar_t* message) {
        const bool has_room = form_ == BlobForm::kExact || compress_token(tokens_.*room.type);
        if (!has_room) {
            log_.log(1, L"%s", message);
            reason_ = message;
        }
        return has_room;
    }

    bool succeeded(HRESULT hr, const wchar_t* message) {
        result_ = hr;
        if (FAILED(hr)) {
            log_result(log_, message, hr);
            reason_ =
                std::wstring(L"its metadata refused a reference: ") + hresult_text(hr).c_str();
        }
        return SUCCEEDED(hr);
    }

    const DebugLog& log_;
    BlobForm form_;
    HRESULT result_ = S_OK;
    std::wstring reason_; // what kept the last step from succeeding
    Tokens tokens_;
    ComPtr<IMetaDataEmit> emit_;
    ComPtr<IMetaDataAssemblyEmit> assembly_emit_;
    ComPtr<IMetaDataImport> import_;
};

} // namespace

DefinedReferences DefineInstrumentationReferences(RewriteContext& context, ICorProfilerInfo* info,
                                                  const method_info& method, bool strict) {
    // The walk over the type references is written down for each method, for whoever reads that.
    if (!context.log.writes(1)) {
        if (const auto known = known_references(method.module_id)) {
            return {S_OK, known, {}};
        }
    }
    Definer definer(context.log, strict ? BlobForm::kExact : BlobForm::kFixedLength);
    std::optional<InstrumentationReferences> references;
    if (definer.open(info, context.info, method.module_id) &&
        definer.can_find_library(info, method.module_name)) {
        references = definer.define_all();
    }
    if (references) {
        keep_references(method.module_id, *references);
    }
    return {definer.result(), references, definer.reason()};
}

} // namespace corvane
