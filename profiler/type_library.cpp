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

// S_OK if it is registered, TYPE_E_LIBNOTREGISTERED if not.
HRESULT find_registration(const TLIBATTR& library) {
    BSTR path = nullptr;
    const HRESULT hr = QueryPathOfRegTypeLib(library.guid, library.wMajorVerNum,
                                             library.wMinorVerNum, library.lcid, &path);
    SysFreeString(path);
    return hr;
}

HRESULT remove_registration(const TLIBATTR& library) {
    return UnRegisterTypeLib(library.guid, library.wMajorVerNum, library.wMinorVerNum, library.lcid,
                             library.syskind);
}

// Does something about this server's library. Throws what `action(library, attributes)` throws.
template <class Action>
HRESULT with_type_library(const Action& action) {
    ComPtr<ITypeLib> library;
    HRESULT hr = load_type_library(library);
    TLIBATTR* attributes = nullptr;
    if (SUCCEEDED(hr)) {
        hr = library->GetLibAttr(&attributes);
    }
    if (FAILED(hr)) {
        return hr;
    }
    const TLIBATTR copy = *attributes;
    library->ReleaseTLibAttr(attributes);
    return action(library.get(), copy);
}

} // namespace

HRESULT register_type_library() {
    return with_type_library([](ITypeLib* library, const TLIBATTR& attributes) {
        std::wstring path = own_module_path();
        std::wstring directory = std::filesystem::path(path).parent_path().wstring();
        const HRESULT before = find_registration(attributes);
        const HRESULT hr = RegisterTypeLib(library, path.data(), directory.data());
        if (FAILED(hr) && before == TYPE_E_LIBNOTREGISTERED) {
            remove_registration(attributes); // of which a part may be there
        }
        return hr;
    });
}

HRESULT unregister_type_library() {
    return with_type_library([](ITypeLib*, const TLIBATTR& attributes) {
        const HRESULT hr = find_registration(attributes);
        if (hr == TYPE_E_LIBNOTREGISTERED) {
            return S_OK;
        }
        return FAILED(hr) ? hr : remove_registration(attributes);
    });
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
