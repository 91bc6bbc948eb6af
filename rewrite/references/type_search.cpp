#include "rewrite/references/type_search.h"

#include "clr/metadata_enumeration.h"

#include <array>
#include <string_view>
#include <vector>

namespace corvane {

namespace {

// Asking for none opens the enumeration, so that it can be counted.
HRESULT read_type_refs(IMetaDataImport* metadata, std::vector<mdTypeRef>& types) {
    MetadataEnumeration list(metadata);
    ULONG count = 0;
    HRESULT hr = metadata->EnumTypeRefs(list.put(), nullptr, 0, nullptr);
    if (SUCCEEDED(hr)) {
        hr = list.count(count);
    }
    if (SUCCEEDED(hr)) {
        types.resize(count);
        hr = metadata->EnumTypeRefs(list.put(), types.data(), count, &count);
    }
    types.resize(SUCCEEDED(hr) ? count : 0);
    return hr;
}

} // namespace

HRESULT find_type_ref(IMetaDataImport* metadata, const wchar_t* name, const DebugLog& log,
                      mdTypeRef& type) {
    constexpr std::size_t kNameRoom = 1024;

    log.log(1, L"===============================");
    std::vector<mdTypeRef> types;
    const HRESULT hr = read_type_refs(metadata, types);
    if (FAILED(hr)) {
        log.log(1, L"Failed to get type references for type %s", name);
        return hr;
    }
    std::array<wchar_t, kNameRoom> text{};
    for (const mdTypeRef candidate : types) {
        ULONG length = 0;
        if (FAILED(
                metadata->GetTypeRefProps(candidate, nullptr, text.data(), kNameRoom, &length))) {
            continue;
        }
        log.log(1, L"TRAVERSING TYPE %s \r\n", text.data());
        if (std::wstring_view(text.data()) == name) {
            type = candidate;
            return S_OK;
        }
    }
    return CLDB_E_RECORD_NOTFOUND;
}

} // namespace corvane
