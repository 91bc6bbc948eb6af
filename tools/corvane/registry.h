// Values of the registry of the local machine, as they are read.
#pragma once

#include "tools/corvane/words.h"

#include <windows.h>

#include <optional>
#include <string>

namespace corvane::tool {

// Texts of any kind; a list has several. Nothing if there is no such key or value. Throws Failure
// if it may not be read.
std::optional<Words> registry_texts(HKEY root, const std::wstring& key, const std::wstring& value);

bool has_registry_key(HKEY root, const std::wstring& key);

} // namespace corvane::tool
