#include "tools/corvane/offline/offline_runtime.h"

#include "clr/runtime_name.h"
#include "rewrite/references/known_references.h"
#include "rewrite/shape/loaded_modules.h"
#include "selection/method_outcomes.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

namespace corvane::tool {

namespace {

constexpr AssemblyID kFirstAssembly = 0x1000;
constexpr ThreadID kThread = 1;

// As the runtime gives a name: the length counts the terminator, the text is cut to the capacity.
void give_name(const std::wstring& text, ULONG capacity, ULONG* length, WCHAR* name) {
    if (length != nullptr) {
        *length = static_cast<ULONG>(text.size() + 1);
    }
    if (name != nullptr && capacity > 0) {
        const std::size_t size = std::min<std::size_t>(text.size(), capacity - 1);
        std::copy_n(text.data(), size, name);
        name[size] = L'\0';
    }
}

// Empty for a module without a manifest.
std::wstring read_assembly_name(IMetaDataImport& metadata) {
    ComPtr<IMetaDataAssemblyImport> assembly_import;
    mdAssembly assembly = mdAssemblyNil;
    ULONG length = 0;
    std::wstring name;
    if (FAILED(metadata.QueryInterface(__uuidof(IMetaDataAssemblyImport),
                                       assembly_import.put_void())) ||
        FAILED(assembly_import->GetAssemblyFromScope(&assembly)) ||
        FAILED(assembly_import->GetAssemblyProps(assembly, nullptr, nullptr, nullptr, nullptr, 0,
                                                 &length, nullptr, nullptr))) {
        return name;
    }
    resize_for_name(name, length);
    if (FAILED(assembly_import->GetAssemblyProps(assembly, nullptr, nullptr, nullptr, name.data(),
                                                 length, &length, nullptr, nullptr))) {
        name.clear();
    }
    return name;
}

} // namespace

std::optional<std::vector<std::uint8_t>> read_file_bytes(const std::filesystem::path& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    std::ifstream file(path, std::ios::binary);
    if (error || !file) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file) {
        return std::nullopt;
    }
    return bytes;
}

OfflineRuntime::~OfflineRuntime() {
    for (ModuleID module = kModule; module <= modules_.size(); ++module) {
        remove_loaded_module(module);
        forget_references(module);
        forget_left_methods(module);
    }
}

bool OfflineRuntime::open(const std::filesystem::path& path, std::vector<std::uint8_t> bytes) {
    Module& module = *modules_.emplace_back(std::make_unique<Module>());
    module.path = path.wstring();
    // A copy: the engine may complete what it writes to in place.
    const bool opened = read(module, std::move(bytes), ofWrite | ofCopyMemory);
    add_loaded_module(this, kModule);
    return opened;
}

ModuleID OfflineRuntime::add_neighbour(const std::filesystem::path& path) {
    modules_.emplace_back(std::make_unique<Module>())->path = path.wstring();
    const ModuleID module = modules_.size();
    add_loaded_module(this, module);
    return module;
}

FileVerdict OfflineRuntime::verdict() const {
    const Module& module = *modules_.front();
    return module.metadata                                    ? FileVerdict::kAssembly
           : module.file->verdict() == FileVerdict::kAssembly ? FileVerdict::kDamaged
                                                              : module.file->verdict();
}

bool OfflineRuntime::read(Module& module, std::vector<std::uint8_t> bytes, DWORD flags) {
    module.file = std::make_unique<AssemblyFile>(std::move(bytes));
    const Bytes metadata = module.file->metadata();
    if (metadata.empty() || FAILED(engine_.OpenScopeOnMemory(
                                metadata.data(), static_cast<ULONG>(metadata.size()), flags,
                                __uuidof(IMetaDataImport), module.metadata.put_unknown()))) {
        module.metadata.reset();
        return false;
    }
    module.assembly_name = read_assembly_name(*module.metadata.get());
    return true;
}

OfflineRuntime::Module* OfflineRuntime::find(ModuleID id) {
    if (id < kModule || id > modules_.size()) {
        return nullptr;
    }
    Module& module = *modules_[id - 1];
    if (module.file == nullptr) {
        read(module, read_file_bytes(module.path).value_or(std::vector<std::uint8_t>()), ofRead);
    }
    return &module;
}

std::vector<FunctionID> OfflineRuntime::functions() const {
    std::vector<FunctionID> functions;
    for (mdToken token = mdtMethodDef | 1; metadata().IsValidToken(token); ++token) {
        if (!original_body(token).empty()) {
            functions.push_back(token);
        }
    }
    return functions;
}

OfflineRuntime::Bytes OfflineRuntime::original_body(mdMethodDef method) const {
    ULONG address = 0;
    DWORD flags = 0;
    if (FAILED(metadata().GetRVA(method, &address, &flags)) || address == 0 ||
        (flags & miCodeTypeMask) != miIL) {
        return {};
    }
    return modules_.front()->file->at(address);
}

OfflineRuntime::Bytes OfflineRuntime::new_body(mdMethodDef method) const {
    const auto found = new_bodies_.find(method);
    return found == new_bodies_.end() ? Bytes() : Bytes(found->second);
}

HRESULT OfflineRuntime::QueryInterface(REFIID iid, void** object) {
    const bool answered = iid == __uuidof(IUnknown) || iid == __uuidof(ICorProfilerInfo) ||
                          iid == __uuidof(ICorProfilerInfo2) || iid == __uuidof(ICorProfilerInfo3);
    *object = answered ? static_cast<ICorProfilerInfo3*>(this) : nullptr;
    return answered ? S_OK : E_NOINTERFACE;
}

HRESULT OfflineRuntime::GetTokenAndMetaDataFromFunction(FunctionID function, REFIID iid,
                                                        IUnknown** metadata, mdToken* token) {
    *token = token_of(function);
    return GetModuleMetaData(kModule, ofRead, iid, metadata);
}

HRESULT OfflineRuntime::GetFunctionInfo(FunctionID function, ClassID* type, ModuleID* module,
                                        mdToken* token) {
    *type = 0;
    *module = kModule;
    *token = token_of(function);
    return S_OK;
}

HRESULT OfflineRuntime::GetModuleInfo(ModuleID id, LPCBYTE* base, ULONG capacity, ULONG* length,
                                      WCHAR* name, AssemblyID* assembly) {
    if (id < kModule || id > modules_.size()) {
        return CORPROF_E_DATAINCOMPLETE;
    }
    if (base != nullptr) {
        *base = nullptr;
    }
    give_name(modules_[id - 1]->path, capacity, length, name);
    if (assembly != nullptr) {
        *assembly = kFirstAssembly + id;
    }
    return S_OK;
}

HRESULT OfflineRuntime::GetModuleInfo2(ModuleID id, LPCBYTE* base, ULONG capacity, ULONG* length,
                                       WCHAR* name, AssemblyID* assembly, DWORD* flags) {
    *flags = COR_PRF_MODULE_DISK;
    return GetModuleInfo(id, base, capacity, length, name, assembly);
}

HRESULT OfflineRuntime::GetAssemblyInfo(AssemblyID assembly, ULONG capacity, ULONG* length,
                                        WCHAR* name, AppDomainID* app_domain, ModuleID* module) {
    const Module* const found = find(assembly - kFirstAssembly);
    if (found == nullptr) {
        return E_INVALIDARG;
    }
    give_name(found->assembly_name, capacity, length, name);
    if (app_domain != nullptr) {
        *app_domain = 0;
    }
    if (module != nullptr) {
        *module = assembly - kFirstAssembly;
    }
    return S_OK;
}

HRESULT OfflineRuntime::GetModuleMetaData(ModuleID id, DWORD, REFIID iid, IUnknown** metadata) {
    const Module* const module = find(id);
    if (module == nullptr || !module->metadata) {
        *metadata = nullptr;
        return CORPROF_E_DATAINCOMPLETE;
    }
    return module->metadata->QueryInterface(iid, reinterpret_cast<void**>(metadata));
}

HRESULT OfflineRuntime::GetRuntimeInformation(USHORT* instance, COR_PRF_RUNTIME_TYPE* type, USHORT*,
                                              USHORT*, USHORT*, USHORT*, ULONG, ULONG*, WCHAR*) {
    *instance = 0;
    *type = COR_PRF_CORE_CLR;
    return S_OK;
}

HRESULT OfflineRuntime::GetCurrentThreadID(ThreadID* thread) {
    *thread = kThread;
    return S_OK;
}

HRESULT OfflineRuntime::GetILFunctionBody(ModuleID module, mdMethodDef method, LPCBYTE* header,
                                          ULONG* size) {
    const Bytes body = module != kModule          ? Bytes()
                       : new_body(method).empty() ? original_body(method)
                                                  : new_body(method);
    *header = body.data();
    *size = static_cast<ULONG>(body.size());
    return body.empty() ? CORPROF_E_FUNCTION_NOT_IL : S_OK;
}

HRESULT OfflineRuntime::GetILFunctionBodyAllocator(ModuleID, IMethodMalloc** allocator) {
    *allocator = &allocator_;
    return S_OK;
}

HRESULT OfflineRuntime::SetILFunctionBody(ModuleID module, mdMethodDef method, LPCBYTE header) {
    if (module != kModule || header != allocator_.memory.data()) {
        return E_INVALIDARG;
    }
    new_bodies_[method] = std::move(allocator_.memory);
    allocator_.memory.clear();
    return S_OK;
}

} // namespace corvane::tool
