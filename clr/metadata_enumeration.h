// MetadataEnumeration: owns an open enumeration of the metadata. A metadata call opens it through
// put() and goes on with it; it is closed with its owner. `Metadata` is the interface that
// enumerates, borrowed.
#pragma once

#include "clr/metadata.h"

namespace corvane {

template <class Metadata>
class MetadataEnumeration {
public:
    explicit MetadataEnumeration(Metadata* metadata) : metadata_(metadata) {}
    MetadataEnumeration(const MetadataEnumeration&) = delete;
    MetadataEnumeration& operator=(const MetadataEnumeration&) = delete;
    ~MetadataEnumeration() { static_cast<void>(metadata_->CloseEnum(list_)); }

    [[nodiscard]] HCORENUM* put() { return &list_; }
    // Of all that the opened enumeration holds, read or not.
    HRESULT count(ULONG& count) { return metadata_->CountEnum(list_, &count); }

private:
    Metadata* metadata_;
    HCORENUM list_ = nullptr;
};

} // namespace corvane
