#include "base/debug_log.h"
#include "base/own_module.h"
#include "selection/excluded_scopes.h"

#include <filesystem>
#include <fstream>

namespace corvane {

void load_excluded_scopes() {
    excluded_scopes.push_back(parse_scope(L"[kite.managed]*"));

    // The standard library opens a wide path as it is; Boost's stream would narrow it first and
    // miss a folder whose name the system's code page cannot spell.
    const std::wstring directory = std::filesystem::path(own_module_path()).parent_path().wstring();
    const std::wstring file = directory + L"\\do_not_instrument.txt";
    std::wifstream lines{std::filesystem::path(file)};
    if (!lines) {
        default_log.log(1, L"Failed to read list of excluded scopes from %s", file.c_str());
        return;
    }
    append_scopes(lines, excluded_scopes);
}

} // namespace corvane
