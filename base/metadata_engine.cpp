#include "base/metadata_engine.h"

#include <oleauto.h>

namespace corvane {
namespace {

using GetDispenser = HRESULT(STDMETHODCALLTYPE*)(REFCLSID class_id, REFIID iid, void** object);

GetDispenser find_engine() {
    for (const wchar_t* const image : {L"coreclr.dll", static_cast<const wchar_t*>(nullptr)}) {
        if (const HMODULE module = GetModuleHandleW(image)) {
            if (const FARPROC found = GetProcAddress(module, "MetaDataGetDispenser")) {
                return reinterpret_cast<GetDispenser>(reinterpret_cast<void*>(found));
            }
        }
    }
    return nullptr;
}

} // namespace

ComPtr<IMetaDataDispenserEx> metadata_engine() {
    ComPtr<IMetaDataDispenserEx> engine;
    const GetDispenser get_dispenser = find_engine();
    VARIANT is_safe = {};
    is_safe.vt = VT_UI4;
    is_safe.ulVal = MDThreadSafetyOn;
    if (get_dispenser == nullptr ||
        FAILED(get_dispenser(CLSID_CorMetaDataDispenser, __uuidof(IMetaDataDispenserEx),
                             engine.put_void())) ||
        FAILED(engine->SetOption(MetaDataThreadSafetyOptions, &is_safe))) {
        engine.reset();
    }
    return engine;
}

} // namespace corvane
