#include "rewrite/references/type_search.h"

#include <array>
#include <string_view>
#include <vector>

namespace corvane {

namespace {

class TypeRefEnumeration {
public:
    explicit TypeRefEnumeration(IMetaDataImport* metadata) : metadata_(metadata) {}
    TypeRefEnumeration(const TypeRefEnumeration&) = delete;
    TypeRefEnumeration& operator=(const TypeRefEnumeration&) = delete;
    ~TypeRefEnumeration() { metadata_->CloseEnum(list_); }

    // Asking for none opens the enumeration, so that it can be counted.
    HRESULT read(std::vector<mdTypeRef>& types) {
        ULONG count = 0;
        HRESULT hr = metadata_->EnumTypeRefs(&list_, nullptr, 0, nullptr);
        if (SUCCEEDED(hr)) {
            hr = metadata_->CountEnum(list_, &count);
        }
        if (SUCCEEDED(hr)) {
            types.resize(count);
            hr = metadata_->EnumTypeRefs(&list_, types.data(), count, &count);
        }
        types.resize(SUCCEEDED(hr) ? count : 0);
        return hr;
    }

private:
    IMetaDataImport* metadata_;
    HCORENUM list_ = nullptr;
};

} // namespace

HRESULT find_type_ref(IMetaDataImport* metadata, const wchar_t* name, const DebugLog& log,
                      mdTypeRef& type) {
    constexpr std::size_t kNameRoom = 1024;

    log.log(1, L"===============================");
    std::vector<mdTypeRef> types;
    const HRESULT hr = TypeRefEnumeration(metadata).read(types);
    if (FAILED(hr)) {
        log.log(1, L"Failed to get type references for type %s", name);
        return hr;
    }
    for (const mdTypeRef candidate : types) {
        std::array<wchar_t, kNameRoom> text{};
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
