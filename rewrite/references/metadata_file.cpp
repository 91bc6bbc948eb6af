#include "rewrite/references/metadata_file.h"

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

ComPtr<IMetaDataImport> open_metadata_file(const std::wstring& path) {
    ComPtr<IMetaDataDispenserEx> dispenser;
    ComPtr<IMetaDataImport> metadata;
    const GetDispenser get_dispenser = find_engine();
    if (get_dispenser == nullptr ||
        FAILED(get_dispenser(CLSID_CorMetaDataDispenser, __uuidof(IMetaDataDispenserEx),
                             dispenser.put_void())) ||
        FAILED(dispenser->OpenScope(path.c_str(), ofRead, __uuidof(IMetaDataImport),
                                    metadata.put_unknown()))) {
        metadata.reset();
    }
    return metadata;
}

} // namespace corvane
