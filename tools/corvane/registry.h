// Values of the registry of the local machine, as they are read.
#pragma once

#include "tools/corvane/words.h"

#include <windows.h>

#include <optional>
#include <string>

namespace corvane::tool {

// A text, or the first one of a list. Nothing if there is no such key or value, or an empty list.
// These throw FailedFinding for a key that may not be read.
std::optional<std::wstring> registry_text(HKEY root, const std::wstring& key,
                                          const std::wstring& value);

// All texts of a list.
std::optional<Words> registry_texts(HKEY root, const std::wstring& key, const std::wstring& value);

// The names of the values of a key.
Words registry_values(HKEY root, const std::wstring& key);

bool has_registry_key(HKEY root, const std::wstring& key);

} // namespace corvane::tool
