// The registry script: the text form of the keys that the server registers, after the manner of
// the platform's .rgs files. Parsing is pure; registrar.h writes and removes what a script names.
//
//   HKCR {
//       NoRemove AppID {                     a key that unregistration leaves
//           '%APPID%' = s 'CorvaneProfiler'  a key with a default value; names may be quoted
//           'CorvaneProfiler.dll' {
//               val AppID = s '%APPID%'      a named value of the key around it
//           }
//       }
//   }
//
// All values are strings (s). %NAME% is replaced inside a word, never across words, so that a
// replacement may hold quotes, braces or blanks. '' inside quotes stands for one quote.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane {

struct RegistryKey {
    std::wstring name;
    bool keep = false; // NoRemove: unregistration leaves the key itself
    std::optional<std::wstring> default_value;
    std::vector<std::pair<std::wstring, std::wstring>> values;
    std::vector<RegistryKey> keys;
};

// Throws std::runtime_error on text that is not a script for HKCR (HKEY_CLASSES_ROOT), with the
// word that it stumbled on. The result is the root; its name is empty.
RegistryKey parse_registry_script(std::wstring_view script,
                                  const std::map<std::wstring, std::wstring>& replacements);

} // namespace corvane
