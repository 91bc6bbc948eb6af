#include "rewrite/shape/method_shape.h"

#include "clr/com_ptr.h"
#include "clr/metadata_enumeration.h"
#include "il/byte_writer.h"
#include "il/element_type.h"
#include "il/token_compression.h"
#include "rewrite/references/known_references.h"
#include "rewrite/references/type_search.h"
#include "rewrite/shape/by_ref_like.h"

#include <algorithm>
#include <array>
#include <map>
#include <string>

namespace corvane {

namespace {

// Of a method's implementation flags: the runtime itself makes the state machine.
constexpr DWORD kRuntimeAsync = 0x2000;

struct BoxingType {
    std::uint8_t element_type;
    const wchar_t* name;
};

// What primitives are boxed as, and the references that are boxed as well, which leaves them as
// they are.
constexpr BoxingType kBoxingTypes[] = {
    {kElementBoolean, L"System.Boolean"}, {kElementChar, L"System.Char"},
    {kElementI1, L"System.SByte"},        {kElementU1, L"System.Byte"},
    {kElementI2, L"System.Int16"},        {kElementU2, L"System.UInt16"},
    {kElementI4, L"System.Int32"},        {kElementU4, L"System.UInt32"},
    {kElementI8, L"System.Int64"},        {kElementU8, L"System.UInt64"},
    {kElementR4, L"System.Single"},       {kElementR8, L"System.Double"},
    {kElementI, L"System.IntPtr"},        {kElementU, L"System.UIntPtr"},
    {kElementArray, L"System.Object"},    {kElementGenericInst, L"System.Object"},
    {kElementSzArray, L"System.Object"},
};

const wchar_t* boxing_type_name(std::uint8_t element_type) {
    return std::ranges::find(kBoxingTypes, element_type, &BoxingType::element_type)->name;
}

std::wstring kind_of(std::uint8_t element_type) {
    switch (element_type) {
    case kElementPtr:
        return L"a pointer";
    case kElementFnPtr:
        return L"a function pointer";
    case kElementTypedByRef:
        return L"a TypedReference";
    case kElementVar:
    case kElementMVar:
        return L"of a type that is not fixed";
    default:
        return L"of an unknown type";
    }
}

mdToken token_of(const SignatureType& type) {
    return type.token().value_or(mdTokenNil);
}

HRESULT count_generic_parameters(IMetaDataImport2* metadata, mdTypeDef type, ULONG& count) {
    MetadataEnumeration list(metadata);
    const HRESULT hr = metadata->EnumGenericParams(list.put(), type, nullptr, 0, nullptr);
    return SUCCEEDED(hr) ? list.count(count) : hr;
}

class ShapeReader {
public:
    ShapeReader(const ShapeSource& source, Refusal& refusal) : source_(source), refusal_(refusal) {}

    HRESULT read(MethodShape& shape) {
        const method_info& method = source_.method;
        const auto signature = read_method_signature({method.signature, method.signature_size});
        if (!signature) {
            return refusal_.refuse(L"its signature cannot be read", META_E_BAD_SIGNATURE);
        }
        if (signature->parameters.size() > kMostParameters) {
            return refusal_.refuse(L"it has more than 127 parameters");
        }
        shape.has_this = signature->has_this;
        HRESULT hr = read_receiver(shape);
        for (std::size_t i = 0; i < signature->parameters.size() && SUCCEEDED(hr); ++i) {
            PassedValue value;
            hr =
                read_value(signature->parameters[i], L"parameter " + std::to_wstring(i + 1), value);
            shape.parameters.push_back(value);
        }
        return SUCCEEDED(hr) ? read_result(signature->result, shape) : hr;
    }

private:
    HRESULT read_result(const SignatureType& type, MethodShape& shape) {
        if (type.by_ref) {
            return refusal_.refuse(L"its result is returned by reference");
        }
        if (type.element_type() == kElementVoid) {
            return S_OK;
        }
        shape.returns_value = true;
        shape.result_type = type.blob;
        if (type.passing() == Passing::kOtherReference) {
            return S_OK; // handed over as it is
        }
        return read_value(type, L"its result", shape.result);
    }

    HRESULT read_value(const SignatureType& type, const std::wstring& what, PassedValue& value) {
        value.by_ref = type.by_ref;
        switch (type.passing()) {
        case Passing::kReference: {
            const std::uint8_t element_type = type.element_type();
            value.type = element_type == kElementClass ? token_of(type) : mdTokenNil;
            value.replaceable =
                !type.by_ref && (element_type == kElementObject || value.type != mdTokenNil);
            return S_OK;
        }
        case Passing::kOtherReference:
            value.as = PassedValue::As::kBoxed;
            return find_boxing_type(type.element_type(), what, value.type);
        case Passing::kPrimitive:
            value.as = PassedValue::As::kBoxed;
            value.replaceable = value.unboxed_back = !type.by_ref;
            return find_boxing_type(type.element_type(), what, value.type);
        case Passing::kValueType:
            value.type = token_of(type);
            if (value.type == mdTokenNil) {
                value.as = PassedValue::As::kNothing;
                return S_OK;
            }
            value.as = PassedValue::As::kBoxed;
            return refuse_by_ref_like(value.type, what + L" is");
        case Passing::kGenericValueType: {
            value.as = PassedValue::As::kBoxed;
            const HRESULT hr = refuse_by_ref_like(token_of(type), what + L" is");
            return FAILED(hr) ? hr : define_type_spec(type.blob, value.type);
        }
        case Passing::kNotAtAll:
            break;
        }
        return refusal_.refuse(what + L" is " + kind_of(type.element_type()) +
                               L", which cannot be boxed");
    }

    HRESULT refuse_by_ref_like(mdToken type, const std::wstring& what_is) {
        switch (by_ref_like(source_.info, source_.method.module_id, source_.import, type)) {
        case ByRefLike::kNo:
            return S_OK;
        case ByRefLike::kYes:
            return refusal_.refuse(what_is + L" of a by-ref-like type, which cannot be boxed");
        case ByRefLike::kUnknown:
            break;
        }
        return refusal_.refuse(what_is +
                               L" of a value type that no module defines which stays loaded");
    }

    HRESULT define_type_spec(std::span<const std::uint8_t> blob, mdToken& token) {
        return source_.emit->GetTokenFromTypeSpec(blob.data(), static_cast<ULONG>(blob.size()),
                                                  &token);
    }

    HRESULT find_boxing_type(std::uint8_t element_type, const std::wstring& what, mdToken& token) {
        if (const auto known = boxing_types_.find(element_type); known != boxing_types_.end()) {
            token = known->second;
            return S_OK;
        }
        const ModuleID module = source_.method.module_id;
        if (!source_.log.writes(1)) { // nobody reads of the search
            if (const auto known = known_boxing_type(module, element_type)) {
                token = *known;
                return S_OK;
            }
        }
        const wchar_t* const name = boxing_type_name(element_type);
        HRESULT hr = find_type_ref(source_.import, name, source_.log, token);
        if (FAILED(hr)) {
            hr = source_.import->FindTypeDefByName(name, mdTokenNil, &token);
        }
        if (FAILED(hr) && source_.strict) {
            hr = source_.emit->DefineTypeRefByName(source_.references.mscorlib, name, &token);
        }
        if (FAILED(hr)) {
            return refusal_.refuse(L"its module does not name " + std::wstring(name) +
                                       L", as which " + what +
                                       L" is boxed; CORVANE_STRICT_IL=1 lets it",
                                   hr);
        }
        boxing_types_[element_type] = token;
        keep_boxing_type(module, element_type, token);
        return S_OK;
    }

    HRESULT read_receiver(MethodShape& shape) {
        mdTypeDef type = mdTypeDefNil;
        DWORD implementation = 0;
        HRESULT hr =
            source_.import->GetMethodProps(source_.method.method_token, &type, nullptr, 0, nullptr,
                                           nullptr, nullptr, nullptr, nullptr, &implementation);
        if (FAILED(hr)) {
            return hr;
        }
        if ((implementation & kRuntimeAsync) != 0) {
            return refusal_.refuse(L"it is suspended by the runtime, and returns another type than "
                                   L"its signature says");
        }
        bool is_value_type = false;
        hr = shape.has_this ? find_kind(type, is_value_type) : S_OK;
        if (FAILED(hr) || !is_value_type) {
            return hr;
        }
        hr = refuse_by_ref_like(type, L"its receiver is");
        if (FAILED(hr)) {
            return hr;
        }
        if (!source_.strict) {
            return refusal_.refuse(
                L"it is an instance method of a value type, whose receiver is no "
                L"object; CORVANE_STRICT_IL=1 boxes it");
        }
        return own_type(type, shape.boxed_receiver);
    }

    HRESULT find_kind(mdTypeDef type, bool& is_value_type) {
        mdToken base = mdTokenNil;
        const HRESULT hr =
            source_.import->GetTypeDefProps(type, nullptr, 0, nullptr, nullptr, &base);
        // System.Enum is a class, and the base of value types only.
        is_value_type = SUCCEEDED(hr) && (is_named(base, L"System.ValueType")
                                              ? source_.method.type_name != L"System.Enum"
                                              : is_named(base, L"System.Enum"));
        return hr;
    }

    bool is_named(mdToken type, std::wstring_view name) const {
        std::array<wchar_t, 64> text{};
        ULONG length = 0;
        const auto room = static_cast<ULONG>(text.size());
        const HRESULT hr =
            TypeFromToken(type) == mdtTypeRef
                ? source_.import->GetTypeRefProps(type, nullptr, text.data(), room, &length)
            : TypeFromToken(type) == mdtTypeDef
                ? source_.import->GetTypeDefProps(type, text.data(), room, &length, nullptr,
                                                  nullptr)
                : E_FAIL;
        return SUCCEEDED(hr) && text.data() == name;
    }

    // A generic type is itself only with its own type parameters as arguments.
    HRESULT own_type(mdTypeDef type, mdToken& token) {
        token = type;
        ComPtr<IMetaDataImport2> import2;
        if (FAILED(
                source_.import->QueryInterface(__uuidof(IMetaDataImport2), import2.put_void()))) {
            return S_OK; // metadata from before generic types
        }
        ULONG count = 0;
        const HRESULT hr = count_generic_parameters(import2.get(), type, count);
        if (FAILED(hr) || count == 0) {
            return hr;
        }
        std::vector<std::uint8_t> blob = {kElementGenericInst, kElementValueType};
        ByteWriter writer(blob);
        writer.write(compress_token_exactly(type).bytes());
        writer.write_compressed(count);
        for (std::uint32_t i = 0; i < count; ++i) {
            blob.push_back(kElementVar);
            writer.write_compressed(i);
        }
        return define_type_spec(blob, token);
    }

    const ShapeSource& source_;
    Refusal& refusal_;
    std::map<std::uint8_t, mdToken> boxing_types_;
};

} // namespace

HRESULT read_method_shape(const ShapeSource& source, MethodShape& shape, Refusal& refusal) {
    return ShapeReader(source, refusal).read(shape);
}

} // namespace corvane
