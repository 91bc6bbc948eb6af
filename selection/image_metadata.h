// The metadata of a module as it lies in the image that the runtime has loaded. To open it there
// leaves the runtime's own metadata in its compact form: once the runtime gives a profiler access
// to that, it keeps a form for writing, which makes its own queries slower.
#pragma once

#include "clr/com_ptr.h"
#include "clr/metadata.h"

#include <cstddef>
#include <span>

namespace corvane {

// Empty unless there is such an image. In a flat one the sections lie as in the file.
std::span<const std::byte> find_image_metadata(const std::byte* image, bool is_flat);

// Null where it cannot be opened. The image has to stay.
ComPtr<IMetaDataImport> open_image_metadata(const std::byte* image, bool is_flat);

// For a module with these flags of the runtime (COR_PRF_MODULE_FLAGS). Null, too, where hot reload
// may change the module: its image does not get the changes.
ComPtr<IMetaDataImport> open_image_metadata_of_module(const std::byte* image, DWORD flags);

} // namespace corvane
