#include "tools/corvane/check_facts.h"

#include "base/owned_handle.h"
#include "profiler/wide_text.h"
#include "tools/corvane/class_id.h"
#include "tools/corvane/registry.h"
#include "tools/corvane/utf8.h"

#include <windows.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <utility>

namespace corvane::tool {
namespace {

namespace fs = std::filesystem;

bool is_file(const fs::path& path) {
    std::error_code ignored;
    return fs::is_regular_file(path, ignored);
}

std::optional<std::string> read_bytes(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

std::vector<std::string> names_in(const fs::path& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        names.push_back(to_utf8(entry->path().filename().wstring()));
    }
    return names;
}

std::string version_of(const fs::path& file) {
    std::vector<char> data(GetFileVersionInfoSizeW(file.c_str(), nullptr));
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT size = 0;
    if (data.empty() ||
        GetFileVersionInfoW(file.c_str(), 0, static_cast<DWORD>(data.size()), data.data()) ==
            FALSE ||
        VerQueryValueW(data.data(), L"\\", reinterpret_cast<void**>(&fixed), &size) == FALSE) {
        return {};
    }
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%u.%u.%u",
                  static_cast<unsigned>(HIWORD(fixed->dwFileVersionMS)),
                  static_cast<unsigned>(LOWORD(fixed->dwFileVersionMS)),
                  static_cast<unsigned>(HIWORD(fixed->dwFileVersionLS)));
    return text.data();
}

FileFacts read_file(const fs::path& path, bool reads_image) {
    FileFacts facts;
    facts.path = to_utf8(path.wstring());
    facts.exists = is_file(path);
    facts.is_full = path.is_absolute();
    if (!facts.exists) {
        return facts;
    }
    facts.version = version_of(path);
    if (reads_image) {
        const auto bytes = read_bytes(path);
        facts.is_readable = bytes.has_value();
        facts.image = bytes ? read_image(*bytes) : std::nullopt;
    }
    return facts;
}

// The compiler notes in an assembly what it was built for.
FileFacts read_library(const fs::path& path) {
    FileFacts facts = read_file(path, false);
    facts.is_for_standard = facts.exists && read_bytes(path).value_or("").find(
                                                ".NETStandard,Version=") != std::string::npos;
    return facts;
}

// Entries that are names of assemblies, not files, are somebody else's.
void read_hooks(const std::wstring& hooks, CheckFacts& facts) {
    for (std::size_t begin = 0; begin < hooks.size();) {
        const std::size_t end = std::min(hooks.find(L';', begin), hooks.size());
        const fs::path hook = hooks.substr(begin, end - begin);
        if (hook.has_parent_path() || hook.extension() == L".dll") {
            facts.hooks.push_back(read_library(hook));
        }
        begin = end + 1;
    }
}

bool has_viewer() {
    const OwnedHandle buffer(OpenFileMappingW(SYNCHRONIZE, FALSE, L"DBWIN_BUFFER"));
    return buffer != nullptr;
}

fs::path with_extension(fs::path path, const wchar_t* extension) {
    return path.replace_extension(extension);
}

} // namespace

CheckFacts read_check_facts(const Environment& variables, const Installation& installed,
                            std::optional<ProgramFacts> program) {
    CheckFacts facts;
    facts.variables = variables;
    facts.program = std::move(program);
    facts.own_profiler = to_utf8(installed.profiler);
    if (const auto registered =
            registry_text(HKEY_CLASSES_ROOT,
                          std::wstring(L"CLSID\\") + kProfilerClass + L"\\InprocServer32", L"")) {
        facts.registered = to_utf8(*registered);
    }
    fs::path profiler = named_profiler(facts);
    if (profiler.empty() && facts.registered) {
        profiler = to_wide(*facts.registered);
    }
    if (!profiler.empty()) {
        facts.profiler = read_file(profiler, true);
    }
    const fs::path home = value_of(variables, L"CORVANE_HOME_APM_DOTNET");
    facts.home = in_code_page(home.wstring());
    if (facts.home && !facts.home->empty()) {
        facts.is_home_full = home.is_absolute();
        facts.config_exists = is_file(home / L"agent.config");
        if (!facts.config_exists) {
            facts.home_files = names_in(home);
        }
        AgentConfig config;
        if (load_agent_config(*facts.home, config, [](int, const wchar_t*) {})) {
            facts.config = std::move(config);
        }
    }
    read_hooks(value_of(variables, L"DOTNET_STARTUP_HOOKS"), facts);
    facts.is_log_read = !value_of(variables, L"CORVANE_LOG_FILE").empty() || has_viewer();
    return facts;
}

ProgramFacts read_program_facts(const Program& program, const std::string& name,
                                const Environment& variables) {
    ProgramFacts facts;
    facts.name = name;
    facts.file = read_file(program.file, true);
    facts.process.executable_name = gate_name(program.file);
    if (const auto type = in_code_page(value_of(variables, L"APP_TYPE")); type && !type->empty()) {
        facts.process.app_type = *type;
    }
    facts.process.arguments = program.words;
    facts.is_dotnet = equals_ignore_case(program.file.filename().wstring(), L"dotnet.exe");
    const bool is_host = facts.file.image && facts.file.image->is_app_host;
    const fs::path assembly = !program.assembly.empty() || facts.is_dotnet
                                  ? program.assembly
                                  : with_extension(program.file, L".dll");
    if (!program.assembly.empty()) {
        facts.assembly = read_file(assembly, false);
    }
    if (facts.file.image && facts.file.image->bundle) {
        facts.runtime_config = read_runtime_config(facts.file.image->bundle->runtime_config);
    } else if (is_host || !program.assembly.empty()) {
        if (const auto json = read_bytes(with_extension(assembly, L".runtimeconfig.json"))) {
            facts.runtime_config = read_runtime_config(*json);
        }
    }
    const fs::path folder = assembly.empty() ? program.file.parent_path() : assembly.parent_path();
    facts.own_library = read_library(folder / L"kite.managed.dll");
    const std::wstring windows = value_of(own_environment(), L"SystemRoot");
    std::error_code ignored;
    facts.has_shared_library = fs::is_directory(fs::path(windows) / L"Microsoft.NET" / L"assembly" /
                                                    L"GAC_MSIL" / L"kite.managed",
                                                ignored);
    return facts;
}

} // namespace corvane::tool
