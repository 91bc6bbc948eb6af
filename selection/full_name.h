// Names as patterns mean them: "Namespace.Type+Nested".
#pragma once

#include "clr/metadata.h"

#include <string>

namespace corvane {

// Empty where the metadata does not give it.
std::wstring full_type_name(IMetaDataImport& metadata, mdTypeDef type);

} // namespace corvane
