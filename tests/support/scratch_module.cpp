#include "tests/support/scratch_module.h"

#include "rewrite/references/known_references.h"
#include "rewrite/shape/loaded_modules.h"
#include "tests/support/failing_metadata.h"

#include <array>
#include <cstdio>
#include <stdexcept>

namespace corvane::testing {

namespace {

// Whoever uses a module need not be a test: what must not happen is thrown.
void require(bool holds) {
    if (!holds) {
        throw std::logic_error("a scratch module was not used as its own");
    }
}

void check(HRESULT hr) {
    if (FAILED(hr)) {
        throw std::runtime_error("the metadata engine answered " + std::to_string(hr));
    }
}

std::string narrow(const wchar_t* text) {
    std::string result;
    for (; *text != L'\0'; ++text) {
        result += static_cast<char>(*text);
    }
    return result;
}

std::string hex(std::uint32_t token) {
    char text[12];
    std::snprintf(text, sizeof text, "%08X", token);
    return text;
}

std::string hex(const void* bytes, ULONG size) {
    std::string text;
    for (ULONG i = 0; i < size; ++i) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%s%02X", i == 0 ? "" : " ",
                      unsigned{static_cast<const std::uint8_t*>(bytes)[i]});
        text += digits;
    }
    return text;
}

} // namespace

// Stands in front of the engine's object.
class ScratchModule::Metadata final : public FailingMetadata, public FailingEmit {
public:
    explicit Metadata(ScratchModule& module) : module_(module) {
        module_.emit_.query(emit_);
        module_.emit_.query(assembly_emit_);
        module_.emit_.query(import_);
        module_.emit_.query(assembly_import_);
    }

    // References are counted, but not to the end of the object.
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (iid == __uuidof(IMetaDataImport2) || iid == __uuidof(IMetaDataEmit2)) {
            return import_->QueryInterface(iid, object);
        }
        if (iid == __uuidof(IMetaDataAssemblyEmit)) {
            const HRESULT hr =
                module_.answer([&] { return "QueryInterface IMetaDataAssemblyEmit"; });
            if (FAILED(hr)) {
                return hr;
            }
            *object = static_cast<IMetaDataAssemblyEmit*>(this);
        } else if (iid == __uuidof(IMetaDataEmit)) {
            *object = static_cast<IMetaDataEmit*>(this);
        } else if (iid == __uuidof(IMetaDataImport)) {
            *object = static_cast<IMetaDataImport*>(this);
        } else if (iid == __uuidof(IMetaDataAssemblyImport)) {
            *object = static_cast<IMetaDataAssemblyImport*>(this);
        } else {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override {
        return static_cast<ULONG>(++*module_.metadata_references_);
    }
    ULONG STDMETHODCALLTYPE Release() override {
        return static_cast<ULONG>(--*module_.metadata_references_);
    }

    HRESULT STDMETHODCALLTYPE DefineAssemblyRef(const void* key, ULONG key_size, LPCWSTR name,
                                                const ASSEMBLYMETADATA* data, const void* hash,
                                                ULONG hash_size, DWORD flags,
                                                mdAssemblyRef* assembly) override {
        const HRESULT hr = module_.answer([&] {
            return "DefineAssemblyRef " + narrow(name) + ' ' +
                   std::to_string(data->usMajorVersion) + '.' +
                   std::to_string(data->usMinorVersion) + '.' +
                   std::to_string(data->usBuildNumber) + '.' +
                   std::to_string(data->usRevisionNumber) + " key " + hex(key, key_size) +
                   " locale " + std::to_string(data->cbLocale) + " hash " +
                   std::to_string(hash_size) + " flags " + std::to_string(flags);
        });
        return FAILED(hr) ? hr
                          : assembly_emit_->DefineAssemblyRef(key, key_size, name, data, hash,
                                                              hash_size, flags, assembly);
    }
    HRESULT STDMETHODCALLTYPE DefineTypeRefByName(mdToken scope, LPCWSTR name,
                                                  mdTypeRef* type) override {
        const HRESULT hr = module_.answer(
            [&] { return "DefineTypeRefByName " + hex(scope) + ' ' + narrow(name); });
        return FAILED(hr) ? hr : emit_->DefineTypeRefByName(scope, name, type);
    }
    HRESULT STDMETHODCALLTYPE DefineMemberRef(mdToken parent, LPCWSTR name,
                                              PCCOR_SIGNATURE signature, ULONG size,
                                              mdMemberRef* member) override {
        const HRESULT hr = module_.answer([&] {
            return "DefineMemberRef " + hex(parent) + ' ' + narrow(name) + ' ' +
                   hex(signature, size);
        });
        return FAILED(hr) ? hr : emit_->DefineMemberRef(parent, name, signature, size, member);
    }
    HRESULT STDMETHODCALLTYPE DefineUserString(LPCWSTR text, ULONG length,
                                               mdString* string) override {
        const HRESULT hr = module_.answer([&] { return "DefineUserString " + narrow(text); });
        return FAILED(hr) ? hr : emit_->DefineUserString(text, length, string);
    }
    HRESULT STDMETHODCALLTYPE GetTokenFromSig(PCCOR_SIGNATURE signature, ULONG size,
                                              mdSignature* token) override {
        const HRESULT hr =
            module_.answer([&] { return "GetTokenFromSig " + hex(signature, size); });
        return FAILED(hr) ? hr : emit_->GetTokenFromSig(signature, size, token);
    }
    HRESULT STDMETHODCALLTYPE GetTokenFromTypeSpec(PCCOR_SIGNATURE signature, ULONG size,
                                                   mdTypeSpec* token) override {
        const HRESULT hr =
            module_.answer([&] { return "GetTokenFromTypeSpec " + hex(signature, size); });
        return FAILED(hr) ? hr : emit_->GetTokenFromTypeSpec(signature, size, token);
    }
    HRESULT STDMETHODCALLTYPE EnumTypeRefs(HCORENUM* list, mdTypeRef* types, ULONG capacity,
                                           ULONG* count) override {
        const HRESULT hr = module_.answer(
            [&] { return capacity == 0 ? "EnumTypeRefs to count" : "EnumTypeRefs to read"; });
        return FAILED(hr) ? hr : counting(list, [&] {
            return import_->EnumTypeRefs(list, types, capacity, count);
        });
    }

    // Not written down: rewriting reads in passing.
    HRESULT STDMETHODCALLTYPE CountEnum(HCORENUM list, ULONG* count) override {
        return import_->CountEnum(list, count);
    }
    void STDMETHODCALLTYPE CloseEnum(HCORENUM list) override {
        module_.open_enumerations -= list != nullptr ? 1 : 0;
        import_->CloseEnum(list);
    }
    HRESULT STDMETHODCALLTYPE GetTypeRefProps(mdTypeRef type, mdToken* scope, LPWSTR name,
                                              ULONG capacity, ULONG* length) override {
        return import_->GetTypeRefProps(type, scope, name, capacity, length);
    }
    HRESULT STDMETHODCALLTYPE FindTypeDefByName(LPCWSTR name, mdToken encloser,
                                                mdTypeDef* type) override {
        return import_->FindTypeDefByName(name, encloser, type);
    }
    HRESULT STDMETHODCALLTYPE GetTypeDefProps(mdTypeDef type, LPWSTR name, ULONG capacity,
                                              ULONG* length, DWORD* flags, mdToken* base) override {
        return import_->GetTypeDefProps(type, name, capacity, length, flags, base);
    }
    HRESULT STDMETHODCALLTYPE GetMethodProps(mdMethodDef method, mdTypeDef* type, LPWSTR name,
                                             ULONG capacity, ULONG* length, DWORD* flags,
                                             PCCOR_SIGNATURE* signature, ULONG* size,
                                             ULONG* address, DWORD* implementation) override {
        return import_->GetMethodProps(method, type, name, capacity, length, flags, signature, size,
                                       address, implementation);
    }
    HRESULT STDMETHODCALLTYPE GetTypeSpecFromToken(mdTypeSpec token, PCCOR_SIGNATURE* signature,
                                                   ULONG* size) override {
        return import_->GetTypeSpecFromToken(token, signature, size);
    }
    HRESULT STDMETHODCALLTYPE GetSigFromToken(mdSignature token, PCCOR_SIGNATURE* signature,
                                              ULONG* size) override {
        return import_->GetSigFromToken(token, signature, size);
    }
    HRESULT STDMETHODCALLTYPE GetCustomAttributeByName(mdToken owner, LPCWSTR name,
                                                       const void** data, ULONG* size) override {
        return import_->GetCustomAttributeByName(owner, name, data, size);
    }
    HRESULT STDMETHODCALLTYPE EnumAssemblyRefs(HCORENUM* list, mdAssemblyRef* assemblies,
                                               ULONG capacity, ULONG* count) override {
        return counting(list, [&] {
            return assembly_import_->EnumAssemblyRefs(list, assemblies, capacity, count);
        });
    }
    HRESULT STDMETHODCALLTYPE GetAssemblyRefProps(mdAssemblyRef assembly, const void** key,
                                                  ULONG* key_size, LPWSTR name, ULONG capacity,
                                                  ULONG* length, ASSEMBLYMETADATA* data,
                                                  const void** hash, ULONG* hash_size,
                                                  DWORD* flags) override {
        return assembly_import_->GetAssemblyRefProps(assembly, key, key_size, name, capacity,
                                                     length, data, hash, hash_size, flags);
    }

private:
    // A call that may open an enumeration.
    template <class Call>
    HRESULT counting(const HCORENUM* list, const Call& call) {
        const bool was_open = *list != nullptr;
        const HRESULT hr = call();
        module_.open_enumerations += !was_open && *list != nullptr ? 1 : 0;
        return hr;
    }

    ScratchModule& module_;
    ComPtr<IMetaDataEmit> emit_;
    ComPtr<IMetaDataAssemblyEmit> assembly_emit_;
    ComPtr<IMetaDataImport> import_;
    ComPtr<IMetaDataAssemblyImport> assembly_import_;
};

namespace {

ComPtr<IMetaDataEmit> define_scope(IMetaDataDispenserEx& dispenser) {
    ComPtr<IMetaDataEmit> emit;
    check(dispenser.DefineScope(CLSID_CorMetaDataRuntime, 0, __uuidof(IMetaDataEmit),
                                emit.put_unknown()));
    return emit;
}

} // namespace

ScratchModule::ScratchModule(IMetaDataDispenserEx& dispenser)
    : dispenser_(dispenser), emit_(define_scope(dispenser)) {
    emit_.query(import_);
    metadata_ = std::make_unique<Metadata>(*this);
    add_loaded_module(nullptr, kModule);
}

ScratchModule::~ScratchModule() {
    remove_loaded_module(kModule);
    remove_loaded_module(kOtherModule);
    forget_references(kModule);
}

IMetaDataEmit& ScratchModule::other() {
    if (!other_) {
        other_ = define_scope(dispenser_);
        add_loaded_module(nullptr, kOtherModule);
    }
    return *other_.get();
}

mdAssemblyRef ScratchModule::assembly_ref(const std::wstring& name) {
    ComPtr<IMetaDataAssemblyEmit> assembly_emit;
    emit_.query(assembly_emit);
    const ASSEMBLYMETADATA data{};
    mdAssemblyRef token = mdAssemblyRefNil;
    check(assembly_emit->DefineAssemblyRef(nullptr, 0, name.c_str(), &data, nullptr, 0, 0, &token));
    return token;
}

mdTypeRef ScratchModule::type_ref(mdToken scope, const std::wstring& name) {
    mdTypeRef token = mdTypeRefNil;
    check(emit_->DefineTypeRefByName(scope, name.c_str(), &token));
    return token;
}

mdTypeDef ScratchModule::type_def(const std::wstring& name, mdToken base) {
    mdTypeDef token = mdTypeDefNil;
    check(emit_->DefineTypeDef(name.c_str(), tdPublic, base, nullptr, &token));
    return token;
}

mdMethodDef ScratchModule::method_def(mdTypeDef type, const std::wstring& name,
                                      const Bytes& signature) {
    mdMethodDef token = mdMethodDefNil;
    check(emit_->DefineMethod(type, name.c_str(), mdPublic, signature.data(),
                              static_cast<ULONG>(signature.size()), 0, 0, &token));
    return token;
}

std::vector<std::wstring> ScratchModule::type_ref_names() {
    std::vector<std::wstring> names;
    for (mdToken token = mdtTypeRef + 1; import_->IsValidToken(token); ++token) {
        std::array<wchar_t, 200> name{};
        ULONG length = 0;
        check(import_->GetTypeRefProps(token, nullptr, name.data(), 200, &length));
        names.emplace_back(name.data());
    }
    return names;
}

std::vector<std::wstring> ScratchModule::assembly_ref_names() {
    ComPtr<IMetaDataAssemblyImport> assembly_import;
    import_.query(assembly_import);
    std::vector<std::wstring> names;
    for (mdToken token = mdtAssemblyRef + 1; import_->IsValidToken(token); ++token) {
        std::array<wchar_t, 200> name{};
        ULONG length = 0;
        check(assembly_import->GetAssemblyRefProps(token, nullptr, nullptr, name.data(), 200,
                                                   &length, nullptr, nullptr, nullptr, nullptr));
        names.emplace_back(name.data());
    }
    return names;
}

Bytes ScratchModule::member_signature(const std::wstring& name) {
    for (mdToken token = mdtMemberRef + 1; import_->IsValidToken(token); ++token) {
        std::array<wchar_t, 200> text{};
        ULONG length = 0;
        PCCOR_SIGNATURE signature = nullptr;
        ULONG size = 0;
        check(import_->GetMemberRefProps(token, nullptr, text.data(), 200, &length, &signature,
                                         &size));
        if (text.data() == name) {
            return {signature, signature + size};
        }
    }
    return {};
}

HRESULT ScratchModule::QueryInterface(REFIID iid, void** object) {
    const bool answered = iid == __uuidof(IUnknown) || iid == __uuidof(ICorProfilerInfo) ||
                          iid == __uuidof(ICorProfilerInfo3);
    *object = answered ? static_cast<ICorProfilerInfo3*>(this) : nullptr;
    references_ += answered ? 1 : 0;
    return answered ? S_OK : E_NOINTERFACE;
}

HRESULT ScratchModule::GetModuleMetaData(ModuleID module, DWORD flags, REFIID iid,
                                         IUnknown** metadata) {
    if (module == kOtherModule) {
        ++other_opened;
        on_other_opened();
        if (!other_has_metadata) {
            *metadata = nullptr;
            return S_OK;
        }
        return other().QueryInterface(iid, reinterpret_cast<void**>(metadata));
    }
    require(module == kModule);
    const HRESULT hr = answer([&] { return "GetModuleMetaData flags " + std::to_string(flags); });
    return FAILED(hr) ? hr : metadata_->QueryInterface(iid, reinterpret_cast<void**>(metadata));
}

HRESULT ScratchModule::GetRuntimeInformation(USHORT*, COR_PRF_RUNTIME_TYPE* type, USHORT*, USHORT*,
                                             USHORT*, USHORT*, ULONG, ULONG*, WCHAR*) {
    *type = runtime_type;
    return S_OK;
}

HRESULT ScratchModule::GetILFunctionBody(ModuleID module, mdMethodDef method, LPCBYTE* header,
                                         ULONG* size) {
    require(module == kModule);
    const auto found = bodies.find(method);
    if (found == bodies.end()) {
        return E_INVALIDARG;
    }
    *header = found->second.data();
    *size = static_cast<ULONG>(found->second.size());
    return S_OK;
}

HRESULT ScratchModule::GetILFunctionBodyAllocator(ModuleID module, IMethodMalloc** allocator) {
    require(module == kModule);
    *allocator = &allocator_;
    return S_OK;
}

HRESULT ScratchModule::SetILFunctionBody(ModuleID module, mdMethodDef method, LPCBYTE header) {
    require(module == kModule);
    require(header == allocator_.memory.data());
    bodies[method] = allocator_.memory;
    ++installations;
    return S_OK;
}

} // namespace corvane::testing
