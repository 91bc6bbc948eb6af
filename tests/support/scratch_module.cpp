#include "tests/support/scratch_module.h"

#include "rewrite/loaded_modules.h"

#include "tests/support/fake_method.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>

namespace corvane::testing {

namespace {

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

class FailingEmit : public IMetaDataEmit, public IMetaDataAssemblyEmit {
public:
#define CORVANE_FAIL(name, parameters)                                                             \
    HRESULT STDMETHODCALLTYPE name parameters override {                                           \
        return E_FAIL;                                                                             \
    }
    METADATA_EMIT_METHODS(CORVANE_FAIL)
    METADATA_ASSEMBLY_EMIT_METHODS(CORVANE_FAIL)
#undef CORVANE_FAIL
};

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
        if (iid == __uuidof(IMetaDataImport2)) {
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
        return FAILED(hr) ? hr : import_->EnumTypeRefs(list, types, capacity, count);
    }

    // Not written down: rewriting reads in passing.
    HRESULT STDMETHODCALLTYPE CountEnum(HCORENUM list, ULONG* count) override {
        return import_->CountEnum(list, count);
    }
    void STDMETHODCALLTYPE CloseEnum(HCORENUM list) override { import_->CloseEnum(list); }
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
        return assembly_import_->EnumAssemblyRefs(list, assemblies, capacity, count);
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
    ScratchModule& module_;
    ComPtr<IMetaDataEmit> emit_;
    ComPtr<IMetaDataAssemblyEmit> assembly_emit_;
    ComPtr<IMetaDataImport> import_;
    ComPtr<IMetaDataAssemblyImport> assembly_import_;
};

class ScratchModule::Allocator final : public IMethodMalloc {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    PVOID STDMETHODCALLTYPE Alloc(ULONG size) override {
        memory.assign(size, 0);
        return memory.data();
    }

    Bytes memory;
};

namespace {

ComPtr<IMetaDataEmit> define_scope(IMetaDataDispenserEx& dispenser) {
    ComPtr<IMetaDataEmit> emit;
    EXPECT_EQ(dispenser.DefineScope(CLSID_CorMetaDataRuntime, 0, __uuidof(IMetaDataEmit),
                                    emit.put_unknown()),
              S_OK);
    return emit;
}

} // namespace

ScratchModule::ScratchModule(IMetaDataDispenserEx& dispenser)
    : dispenser_(dispenser), emit_(define_scope(dispenser)) {
    emit_.query(import_);
    metadata_ = std::make_unique<Metadata>(*this);
    allocator_ = std::make_unique<Allocator>();
    add_loaded_module(nullptr, kModule);
}

ScratchModule::~ScratchModule() {
    remove_loaded_module(kModule);
    remove_loaded_module(kOtherModule);
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
    EXPECT_EQ(
        assembly_emit->DefineAssemblyRef(nullptr, 0, name.c_str(), &data, nullptr, 0, 0, &token),
        S_OK);
    return token;
}

mdTypeRef ScratchModule::type_ref(mdToken scope, const std::wstring& name) {
    mdTypeRef token = mdTypeRefNil;
    EXPECT_EQ(emit_->DefineTypeRefByName(scope, name.c_str(), &token), S_OK);
    return token;
}

mdTypeDef ScratchModule::type_def(const std::wstring& name, mdToken base) {
    mdTypeDef token = mdTypeDefNil;
    EXPECT_EQ(emit_->DefineTypeDef(name.c_str(), tdPublic, base, nullptr, &token), S_OK);
    return token;
}

mdMethodDef ScratchModule::method_def(mdTypeDef type, const std::wstring& name,
                                      const Bytes& signature) {
    mdMethodDef token = mdMethodDefNil;
    EXPECT_EQ(emit_->DefineMethod(type, name.c_str(), mdPublic, signature.data(),
                                  static_cast<ULONG>(signature.size()), 0, 0, &token),
              S_OK);
    return token;
}

std::vector<std::wstring> ScratchModule::type_ref_names() {
    std::vector<std::wstring> names;
    for (mdToken token = mdtTypeRef + 1; import_->IsValidToken(token); ++token) {
        std::array<wchar_t, 200> name{};
        ULONG length = 0;
        EXPECT_EQ(import_->GetTypeRefProps(token, nullptr, name.data(), 200, &length), S_OK);
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
        EXPECT_EQ(assembly_import->GetAssemblyRefProps(token, nullptr, nullptr, name.data(), 200,
                                                       &length, nullptr, nullptr, nullptr, nullptr),
                  S_OK);
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
        EXPECT_EQ(import_->GetMemberRefProps(token, nullptr, text.data(), 200, &length, &signature,
                                             &size),
                  S_OK);
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
        return other().QueryInterface(iid, reinterpret_cast<void**>(metadata));
    }
    EXPECT_EQ(module, kModule);
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
    EXPECT_EQ(module, kModule);
    const auto found = bodies.find(method);
    if (found == bodies.end()) {
        return E_INVALIDARG;
    }
    *header = found->second.data();
    *size = static_cast<ULONG>(found->second.size());
    return S_OK;
}

HRESULT ScratchModule::GetILFunctionBodyAllocator(ModuleID module, IMethodMalloc** allocator) {
    EXPECT_EQ(module, kModule);
    *allocator = allocator_.get();
    return S_OK;
}

HRESULT ScratchModule::SetILFunctionBody(ModuleID module, mdMethodDef method, LPCBYTE header) {
    EXPECT_EQ(module, kModule);
    EXPECT_EQ(header, allocator_->memory.data());
    bodies[method] = allocator_->memory;
    ++installations;
    return S_OK;
}

} // namespace corvane::testing
