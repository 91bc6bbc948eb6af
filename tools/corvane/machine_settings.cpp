#include "tools/corvane/machine_settings.h"

#include "base/hresult_text.h"
#include "base/local_memory.h"
#include "base/owned_handle.h"
#include "tools/corvane/finding_kinds.h"
#include "tools/corvane/host_config.h"
#include "tools/corvane/registry.h"
#include "tools/corvane/search_path.h"
#include "tools/corvane/utf8.h"

#include <windows.h>

#include <shellapi.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

namespace corvane::tool {
namespace {

namespace fs = std::filesystem;

const std::wstring kServices = L"SYSTEM\\CurrentControlSet\\Services\\";
constexpr wchar_t kMachineVariables[] =
    L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";

OwnedHandle open_to_read(const fs::path& file) {
    const HANDLE opened =
        CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    return OwnedHandle(opened == INVALID_HANDLE_VALUE ? nullptr : opened);
}

std::wstring expanded(const std::wstring& text) {
    std::wstring result(ExpandEnvironmentStringsW(text.c_str(), nullptr, 0), L'\0');
    result.resize(
        ExpandEnvironmentStringsW(text.c_str(), result.data(), static_cast<DWORD>(result.size())));
    result.resize(result.size() - (result.empty() ? 0 : 1)); // its terminator
    return result;
}

Words split_line(const std::wstring& line) {
    int count = 0;
    const LocalMemory<LPWSTR> list(CommandLineToArgvW(line.c_str(), &count));
    return list && !line.empty() ? Words(list.get(), list.get() + count) : Words();
}

bool is_program(const std::wstring& name) {
    return std::ranges::any_of(candidates(name, {}), [](const std::wstring& file) {
        std::error_code ignored;
        return fs::is_regular_file(file, ignored);
    });
}

// A path with blanks may stand there without quotes.
Words words_of(const std::wstring& line) {
    for (const std::wstring& program : possible_programs(line)) {
        if (is_program(program)) {
            return split_line(L'"' + program + L'"' + line.substr(program.size()));
        }
    }
    return split_line(line);
}

void set_variable(Environment& variables, const std::wstring& assignment) {
    const std::size_t equals = assignment.find(L'=', 1);
    if (equals != assignment.npos) {
        variables[assignment.substr(0, equals)] = assignment.substr(equals + 1);
    }
}

// Those that every process gets that no user starts.
Environment machine_variables() {
    Environment variables;
    for (const std::wstring& name : registry_values(HKEY_LOCAL_MACHINE, kMachineVariables)) {
        variables[name] =
            expanded(registry_text(HKEY_LOCAL_MACHINE, kMachineVariables, name).value_or(L""));
    }
    return variables;
}

void add_service_variables(Environment& variables, const std::wstring& service) {
    for (const std::wstring& assignment :
         registry_texts(HKEY_LOCAL_MACHINE, kServices + service, L"Environment")
             .value_or(Words())) {
        set_variable(variables, assignment);
    }
}

fs::path server_folder() {
    wchar_t system[MAX_PATH] = {};
    GetSystemDirectoryW(system, MAX_PATH);
    return fs::path(system) / "inetsrv";
}

// Nothing without such a pool, or without IIS.
std::optional<PoolSettings> pool_settings(const std::wstring& name) {
    const fs::path file = host_config_file();
    const OwnedHandle opened = open_to_read(file);
    const DWORD error = GetLastError();
    if (!opened && (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)) {
        return std::nullopt;
    }
    const std::string name_of_file = to_utf8(file.wstring());
    if (!opened) {
        throw FailedFinding(unreadable_pools(
            name_of_file, to_utf8(hresult_text(HRESULT_FROM_WIN32(error)).c_str())));
    }
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    if (!is_well_formed(text)) {
        throw FailedFinding(unreadable_pools(name_of_file, "it is no XML"));
    }
    return read_pool(text, name);
}

} // namespace

fs::path host_config_file() {
    return server_folder() / "config" / "applicationHost.config";
}

MachineProgram find_service(const std::wstring& name) {
    MachineProgram service;
    service.exists = has_registry_key(HKEY_LOCAL_MACHINE, kServices + name);
    if (service.exists) {
        service.words = words_of(expanded(
            registry_text(HKEY_LOCAL_MACHINE, kServices + name, L"ImagePath").value_or(L"")));
        service.variables = machine_variables();
        add_service_variables(service.variables, name);
    }
    return service;
}

MachineProgram find_pool(const std::wstring& name) {
    MachineProgram pool;
    if (const auto settings = pool_settings(name)) {
        pool.exists = true;
        pool.is_32_bit = settings->is_32_bit;
        pool.words = {(server_folder() / "w3wp.exe").wstring(), L"-ap", name};
        // A worker gets the variables of the machine, of the service that starts it, and of its
        // pool.
        pool.variables = machine_variables();
        add_service_variables(pool.variables, L"WAS");
        add_service_variables(pool.variables, L"W3SVC");
        for (const Environment& list : {settings->inherited, settings->own}) {
            for (const auto& [variable, value] : list) {
                pool.variables[variable] = value;
            }
        }
    }
    return pool;
}

} // namespace corvane::tool
