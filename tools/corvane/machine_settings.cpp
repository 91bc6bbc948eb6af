#include "tools/corvane/machine_settings.h"

#include "base/local_memory.h"
#include "profiler/wide_text.h"
#include "tools/corvane/registry.h"
#include "tools/corvane/utf8.h"

#include <boost/property_tree/xml_parser.hpp>

#include <windows.h>

#include <shellapi.h>

#include <filesystem>
#include <fstream>

namespace corvane::tool {
namespace {

namespace fs = std::filesystem;
using boost::property_tree::ptree;

const std::wstring kServices = L"SYSTEM\\CurrentControlSet\\Services\\";
constexpr wchar_t kMachineVariables[] =
    L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";

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
    return list ? Words(list.get(), list.get() + count) : Words();
}

void set_variable(Environment& variables, const std::wstring& assignment) {
    const std::size_t equals = assignment.find(L'=', 1);
    if (equals != assignment.npos) {
        variables[assignment.substr(0, equals)] = assignment.substr(equals + 1);
    }
}

// Those that every process gets that no user starts. Only the names that matter here are asked for.
Environment machine_variables() {
    Environment variables;
    for (const wchar_t* const name :
         {L"CORECLR_ENABLE_PROFILING", L"CORECLR_PROFILER", L"CORECLR_PROFILER_PATH",
          L"CORECLR_PROFILER_PATH_64", L"COR_ENABLE_PROFILING", L"COR_PROFILER",
          L"COR_PROFILER_PATH", L"COR_PROFILER_PATH_64", L"CORVANE_HOME_APM_DOTNET",
          L"CORVANE_LOG_FILE", L"DOTNET_STARTUP_HOOKS", L"DOTNET_EnableDiagnostics",
          L"DOTNET_EnableDiagnostics_Profiler", L"COMPlus_EnableDiagnostics",
          L"COMPlus_EnableDiagnostics_Profiler", L"DOTNET_ROLL_FORWARD"}) {
        if (const auto value = registry_texts(HKEY_LOCAL_MACHINE, kMachineVariables, name)) {
            variables[name] = expanded(value->front());
        }
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

ptree read_host_config() {
    wchar_t system[MAX_PATH] = {};
    GetSystemDirectoryW(system, MAX_PATH);
    ptree config;
    try {
        std::ifstream stream(fs::path(system) / "inetsrv" / "config" / "applicationHost.config");
        boost::property_tree::read_xml(stream, config,
                                       boost::property_tree::xml_parser::no_comments);
    } catch (const std::exception&) {
        config.clear();
    }
    return config;
}

} // namespace

MachineProgram find_service(const std::wstring& name) {
    MachineProgram service;
    service.exists = has_registry_key(HKEY_LOCAL_MACHINE, kServices + name);
    if (service.exists) {
        const auto path = registry_texts(HKEY_LOCAL_MACHINE, kServices + name, L"ImagePath");
        service.words = path ? split_line(expanded(path->front())) : Words();
        service.variables = machine_variables();
        add_service_variables(service.variables, name);
    }
    return service;
}

MachineProgram find_pool(const std::wstring& name) {
    MachineProgram pool;
    const ptree config = read_host_config();
    const ptree none;
    // The dot in the name of the section divides the path.
    const auto configuration = config.get_child_optional("configuration");
    const auto host = (configuration ? *configuration : none)
                          .get_child_optional(ptree::path_type("system.applicationHost", '/'));
    const auto list = (host ? *host : none).get_child_optional("applicationPools");
    for (const auto& [element, entry] : list ? *list : none) {
        if (element != "add" ||
            !equals_ignore_case(to_wide(entry.get("<xmlattr>.name", "")), name)) {
            continue;
        }
        pool.exists = true;
        pool.is_32_bit = entry.get("<xmlattr>.enable32BitAppOnWin64", "false") == "true";
        wchar_t system[MAX_PATH] = {};
        GetSystemDirectoryW(system, MAX_PATH);
        pool.words = {(fs::path(system) / "inetsrv" / "w3wp.exe").wstring(), L"-ap", name};
        // A worker gets the variables of the machine, of the service that starts it, and of its
        // pool.
        pool.variables = machine_variables();
        add_service_variables(pool.variables, L"WAS");
        add_service_variables(pool.variables, L"W3SVC");
        for (const auto& [kind, variable] : entry.get_child("environmentVariables", none)) {
            if (kind == "add") {
                pool.variables[to_wide(variable.get("<xmlattr>.name", ""))] =
                    to_wide(variable.get("<xmlattr>.value", ""));
            }
        }
        break;
    }
    return pool;
}

} // namespace corvane::tool
