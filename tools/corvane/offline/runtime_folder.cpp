#include "tools/corvane/offline/runtime_folder.h"

#include "tools/corvane/runtime_config.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>

namespace corvane::tool {

namespace fs = std::filesystem;

namespace {

constexpr const wchar_t* kRuntimeLibrary = L"coreclr.dll";
constexpr const wchar_t* kRuntimeName = L"Microsoft.NETCore.App";

bool has_runtime(const fs::path& folder) {
    std::error_code error;
    return fs::is_regular_file(folder / kRuntimeLibrary, error);
}

std::vector<fs::path> folders_in(const fs::path& folder) {
    std::vector<fs::path> found;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->is_directory(error)) {
            found.push_back(entry->path());
        }
    }
    return found;
}

std::optional<fs::path> variable(const wchar_t* name) {
    std::wstring value(GetEnvironmentVariableW(name, nullptr, 0), L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return value.empty() ? std::nullopt : std::optional<fs::path>(value);
}

// What the program asks its host for. A number is enough; the whole file is the host's.
std::optional<unsigned> asked_major(const fs::path& assembly) {
    fs::path file = assembly;
    std::ifstream stream(file.replace_extension(L".runtimeconfig.json"), std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    const int major = std::atoi(read_runtime_config(text).version.c_str());
    return major > 0 ? std::optional(static_cast<unsigned>(major)) : std::nullopt;
}

std::optional<fs::path> runtime_of_installation(const fs::path& root,
                                                std::optional<unsigned> major) {
    std::vector<fs::path> folders = folders_in(root / L"shared" / kRuntimeName);
    std::erase_if(folders, [](const fs::path& folder) { return !has_runtime(folder); });
    std::vector<std::wstring> names;
    std::ranges::transform(folders, std::back_inserter(names),
                           [](const fs::path& folder) { return folder.filename().wstring(); });
    const auto best = best_version(names, major);
    return best ? std::optional(folders[*best]) : std::nullopt;
}

} // namespace

std::optional<RuntimeVersion> parse_version(std::wstring_view text) {
    static const std::wregex form(LR"-((\d{1,9})\.(\d{1,9})\.(\d{1,9})(-.*)?)-");
    std::wcmatch match;
    if (!std::regex_match(text.data(), text.data() + text.size(), match, form)) {
        return std::nullopt;
    }
    RuntimeVersion version;
    for (std::size_t i = 0; i < version.numbers.size(); ++i) {
        version.numbers[i] = static_cast<unsigned>(std::stoul(match[static_cast<int>(i) + 1]));
    }
    version.is_release = !match[4].matched;
    return version;
}

std::optional<std::size_t> best_version(const std::vector<std::wstring>& names,
                                        std::optional<unsigned> major) {
    std::optional<std::size_t> best;
    std::pair<bool, RuntimeVersion> best_rank;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const auto version = parse_version(names[i]);
        if (!version) {
            continue;
        }
        const std::pair rank(version->numbers[0] == major, *version);
        if (!best || best_rank < rank) {
            best = i;
            best_rank = rank;
        }
    }
    return best;
}

std::optional<fs::path> find_runtime(const fs::path& assembly,
                                     const std::optional<fs::path>& asked) {
    const std::optional<unsigned> major = asked_major(assembly);
    if (asked) {
        return has_runtime(*asked) ? *asked : runtime_of_installation(*asked, major);
    }
    for (const wchar_t* const name : {L"DOTNET_ROOT_X64", L"DOTNET_ROOT"}) {
        if (const auto root = variable(name)) {
            if (const auto found = runtime_of_installation(*root, major)) {
                return found;
            }
        }
    }
    const auto programs = variable(L"ProgramFiles");
    return programs ? runtime_of_installation(*programs / L"dotnet", major) : std::nullopt;
}

std::vector<fs::path> framework_folders(const fs::path& runtime) {
    std::vector<fs::path> folders = {runtime};
    if (runtime.parent_path().filename() == kRuntimeName) {
        for (const fs::path& framework : folders_in(runtime.parent_path().parent_path())) {
            const fs::path same_version = framework / runtime.filename();
            std::error_code error;
            if (framework.filename() != kRuntimeName && fs::is_directory(same_version, error)) {
                folders.push_back(same_version);
            }
        }
    }
    return folders;
}

} // namespace corvane::tool
