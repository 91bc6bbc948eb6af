#include "tests/support/real_methods.h"

#include "selection/module_facts.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace corvane::testing {

namespace fs = std::filesystem;

std::optional<fs::path> newest_runtime_folder() {
    const wchar_t* const roots = _wgetenv(L"CORVANE_DOTNET_ROOTS");
    if (roots == nullptr) {
        return std::nullopt;
    }
    const fs::path versions =
        fs::absolute(roots).make_preferred() / "10" / "shared" / "Microsoft.NETCore.App";
    std::error_code error;
    const fs::directory_iterator version(versions, error);
    return error ? std::nullopt : std::optional(version->path());
}

ComPtr<IMetaDataDispenserEx> metadata_dispenser(const fs::path& runtime_folder) {
    using GetDispenser = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    ComPtr<IMetaDataDispenserEx> dispenser;
    // Never unloaded: the runtime's library does not support it.
    const HMODULE coreclr = LoadLibraryExW((runtime_folder / "coreclr.dll").c_str(), nullptr,
                                           LOAD_WITH_ALTERED_SEARCH_PATH);
    if (coreclr != nullptr) {
        const auto get_dispenser = reinterpret_cast<GetDispenser>(
            reinterpret_cast<void*>(GetProcAddress(coreclr, "MetaDataGetDispenser")));
        get_dispenser(CLSID_CorMetaDataDispenser, __uuidof(IMetaDataDispenserEx),
                      dispenser.put_void());
    }
    return dispenser;
}

RealMethods::RealMethods(IMetaDataDispenserEx& dispenser, const fs::path& assembly)
    : file_(assembly.wstring()), name_(assembly.stem().wstring()) {
    if (FAILED(dispenser.OpenScope(file_.c_str(), ofRead, __uuidof(IMetaDataImport),
                                   metadata_.put_unknown()))) {
        throw std::runtime_error("cannot open " + assembly.string());
    }
}

RealMethods::~RealMethods() {
    forget_module_facts(kModule);
}

std::vector<FunctionID> RealMethods::with_body() const {
    std::vector<FunctionID> methods;
    for (mdToken token = mdtMethodDef + 1; metadata_->IsValidToken(token); ++token) {
        ULONG address = 0;
        DWORD flags = 0;
        if (SUCCEEDED(metadata_->GetRVA(token, &address, &flags)) && address != 0) {
            methods.push_back(token);
        }
    }
    return methods;
}

FunctionID RealMethods::find(const std::wstring& type, const std::wstring& method) const {
    mdToken owner = mdTokenNil;
    std::size_t begin = 0;
    for (;;) {
        const std::size_t end = type.find(L'+', begin);
        const std::wstring name = type.substr(begin, end - begin);
        if (FAILED(metadata_->FindTypeDefByName(name.c_str(), owner, &owner))) {
            return 0;
        }
        if (end == std::wstring::npos) {
            break;
        }
        begin = end + 1;
    }
    HCORENUM list = nullptr;
    mdMethodDef token = mdMethodDefNil;
    ULONG count = 0;
    metadata_->EnumMethodsWithName(&list, owner, method.c_str(), &token, 1, &count);
    metadata_->CloseEnum(list);
    return count == 1 ? token : 0;
}

HRESULT RealMethods::GetTokenAndMetaDataFromFunction(FunctionID function, REFIID iid,
                                                     IUnknown** metadata, mdToken* token) {
    ++opened;
    *token = static_cast<mdToken>(function);
    return metadata_->QueryInterface(iid, reinterpret_cast<void**>(metadata));
}

HRESULT RealMethods::GetFunctionInfo(FunctionID function, ClassID* class_id, ModuleID* module,
                                     mdToken* token) {
    *class_id = 0xC1;
    *module = kModule;
    *token = static_cast<mdToken>(function);
    return S_OK;
}

HRESULT RealMethods::GetModuleInfo(ModuleID, LPCBYTE*, ULONG capacity, ULONG* length, WCHAR* name,
                                   AssemblyID* assembly) {
    give_name(file_, capacity, length, name);
    if (assembly != nullptr) {
        *assembly = kAssembly;
    }
    return S_OK;
}

HRESULT RealMethods::GetModuleInfo2(ModuleID module, LPCBYTE* base, ULONG capacity, ULONG* length,
                                    WCHAR* name, AssemblyID* assembly, DWORD* flags) {
    *flags = COR_PRF_MODULE_DISK | COR_PRF_MODULE_FLAT_LAYOUT;
    if (gives_image && image_.empty()) {
        std::ifstream file(fs::path(file_), std::ios::binary);
        image_.assign(std::istreambuf_iterator<char>(file), {});
    }
    *base = gives_image ? reinterpret_cast<LPCBYTE>(image_.data()) : nullptr;
    return GetModuleInfo(module, nullptr, capacity, length, name, assembly);
}

HRESULT RealMethods::GetAssemblyInfo(AssemblyID, ULONG capacity, ULONG* length, WCHAR* name,
                                     AppDomainID*, ModuleID*) {
    give_name(name_, capacity, length, name);
    return S_OK;
}

HRESULT RealMethods::GetModuleMetaData(ModuleID, DWORD, REFIID iid, IUnknown** metadata) {
    ++opened;
    return metadata_->QueryInterface(iid, reinterpret_cast<void**>(metadata));
}

HRESULT RealMethods::GetCurrentThreadID(ThreadID* thread) {
    *thread = 0xD1;
    return S_OK;
}

} // namespace corvane::testing
