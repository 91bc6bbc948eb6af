#include "profiler/com_module.h"

#include "base/own_module.h"
#include "profiler/class_factory.h"
#include "profiler/class_ids.h"
#include "profiler/registrar.h"
#include "profiler/type_library.h"

#include <exception>
#include <map>
#include <new>
#include <stdexcept>
#include <string>

namespace corvane {
namespace {

// The resources that hold the scripts, of the type REGISTRY.
constexpr WORD kModuleScript = 101;
constexpr WORD kClassScript = 102;

std::wstring guid_text(const GUID& id) {
    wchar_t text[40] = {};
    StringFromGUID2(id, text, 40);
    return text;
}

std::wstring script_text(WORD resource) {
    const HRSRC found = FindResourceW(own_module(), MAKEINTRESOURCEW(resource), L"REGISTRY");
    const HGLOBAL loaded = found != nullptr ? LoadResource(own_module(), found) : nullptr;
    const auto* const text = static_cast<const char*>(LockResource(loaded));
    if (text == nullptr) {
        throw std::runtime_error("the registry script is not in the resources");
    }
    return {text, text + SizeofResource(own_module(), found)};
}

RegistryKey load_script(WORD resource) {
    return parse_registry_script(script_text(resource), {{L"APPID", guid_text(kAppId)},
                                                         {L"CLSID", guid_text(kProfilerClassId)},
                                                         {L"LIBID", guid_text(kTypeLibraryId)},
                                                         {L"MODULE", own_module_path()}});
}

HRESULT first_failure(HRESULT first, HRESULT second) {
    return FAILED(first) ? first : second;
}

template <class Action>
HRESULT guarded(const Action& action) noexcept {
    try {
        return action();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (const std::exception&) {
        return E_UNEXPECTED;
    }
}

} // namespace

HRESULT CCorvaneProfiler::get_class_object(REFCLSID clsid, REFIID iid, void** object) noexcept {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (!initialised_) {
        return E_UNEXPECTED;
    }
    return clsid == kProfilerClassId ? get_profiler_class_factory(iid, object)
                                     : CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT CCorvaneProfiler::register_server() noexcept {
    return guarded([] {
        const RegistryKey module_keys = load_script(kModuleScript);
        const RegistryKey class_keys = load_script(kClassScript);
        NewRegistryKeys made;
        HRESULT hr = write_registry_keys(module_keys, made);
        if (SUCCEEDED(hr)) {
            hr = write_registry_keys(class_keys, made);
        }
        if (SUCCEEDED(hr)) {
            hr = register_type_library();
        }
        if (SUCCEEDED(hr)) {
            made.keep();
        }
        return hr;
    });
}

HRESULT CCorvaneProfiler::unregister_server() noexcept {
    return guarded([] {
        const RegistryKey module_keys = load_script(kModuleScript);
        const HRESULT classes = remove_registry_keys(load_script(kClassScript));
        const HRESULT module = remove_registry_keys(module_keys);
        const HRESULT library = unregister_type_library();
        return first_failure(classes, first_failure(module, library));
    });
}

CCorvaneProfiler& server_module() noexcept {
    static constinit CCorvaneProfiler module;
    return module;
}

} // namespace corvane
