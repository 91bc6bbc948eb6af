#include "profiler/type_library.h"

#include "base/own_module.h"
#include "clr/com_ptr.h"

#include <oleauto.h>

#include <filesystem>
#include <new>
#include <string>

namespace corvane {
namespace {

HRESULT load_type_library(ComPtr<ITypeLib>& library) {
    return LoadTypeLibEx(own_module_path().c_str(), REGKIND_NONE, library.put());
}

bool is_registered(const TLIBATTR& library) {
    BSTR path = nullptr;
    const HRESULT hr = QueryPathOfRegTypeLib(library.guid, library.wMajorVerNum,
                                             library.wMinorVerNum, library.lcid, &path);
    SysFreeString(path);
    return SUCCEEDED(hr);
}

} // namespace

HRESULT register_type_library() {
    ComPtr<ITypeLib> library;
    const HRESULT hr = load_type_library(library);
    if (FAILED(hr)) {
        return hr;
    }
    std::wstring path = own_module_path();
    std::wstring directory = std::filesystem::path(path).parent_path().wstring();
    return RegisterTypeLib(library.get(), path.data(), directory.data());
}

HRESULT unregister_type_library() {
    ComPtr<ITypeLib> library;
    HRESULT hr = load_type_library(library);
    TLIBATTR* attributes = nullptr;
    if (SUCCEEDED(hr)) {
        hr = library->GetLibAttr(&attributes);
    }
    if (FAILED(hr)) {
        return hr;
    }
    if (is_registered(*attributes)) {
        hr = UnRegisterTypeLib(attributes->guid, attributes->wMajorVerNum, attributes->wMinorVerNum,
                               attributes->lcid, attributes->syskind);
    }
    library->ReleaseTLibAttr(attributes);
    return hr;
}

HRESULT get_class_info(REFCLSID clsid, ITypeInfo** info) noexcept {
    if (info == nullptr) {
        return E_POINTER;
    }
    *info = nullptr;
    try {
        ComPtr<ITypeLib> library;
        const HRESULT hr = load_type_library(library);
        return FAILED(hr) ? hr : library->GetTypeInfoOfGuid(clsid, info);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

} // namespace corvane
