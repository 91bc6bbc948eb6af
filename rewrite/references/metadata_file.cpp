#include "rewrite/references/metadata_file.h"

#include "base/metadata_engine.h"

namespace corvane {

ComPtr<IMetaDataImport> open_metadata_file(const std::wstring& path) {
    const ComPtr<IMetaDataDispenserEx> engine = metadata_engine();
    ComPtr<IMetaDataImport> metadata;
    if (!engine || FAILED(engine->OpenScope(path.c_str(), ofRead, __uuidof(IMetaDataImport),
                                            metadata.put_unknown()))) {
        metadata.reset();
    }
    return metadata;
}

} // namespace corvane
