#include "tools/corvane/program.h"

#include "profiler/wide_text.h"
#include "tools/corvane/search_path.h"

#include <windows.h>

#include <memory>

namespace corvane::tool {
namespace {

namespace fs = std::filesystem;

bool is_file(const fs::path& path) {
    std::error_code ignored;
    return fs::is_regular_file(path, ignored);
}

// The system says whether names are looked for in the current folder.
Words searched_folders(const std::wstring& name, const Environment& environment) {
    Words folders = folders_of(value_of(environment, L"PATH"));
    if (NeedCurrentDirectoryForExePathW(name.c_str()) != FALSE) {
        folders.insert(folders.begin(), L".");
    }
    return folders;
}

fs::path find_file(const std::wstring& name, const Environment& environment) {
    for (const std::wstring& candidate : candidates(name, searched_folders(name, environment))) {
        if (is_file(candidate)) {
            return full_path(candidate);
        }
    }
    return {};
}

fs::path find_dotnet(const Environment& environment) {
    for (const wchar_t* const variable : {L"DOTNET_ROOT_X64", L"DOTNET_ROOT"}) {
        const fs::path file = fs::path(value_of(environment, variable)) / L"dotnet.exe";
        if (file.has_parent_path() && is_file(file)) {
            return full_path(file.wstring());
        }
    }
    return find_file(L"dotnet.exe", environment);
}

bool is_library(const std::wstring& name) {
    return equals_ignore_case(fs::path(name).extension().wstring(), L".dll");
}

std::string narrowed(const std::wstring& text, bool& is_exact) {
    BOOL replaced = FALSE;
    const int size = static_cast<int>(text.size());
    const int length =
        WideCharToMultiByte(CP_ACP, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_ACP, 0, text.data(), size, narrow.data(), length, nullptr,
                        GetACP() == CP_UTF8 ? nullptr : &replaced);
    is_exact = replaced == FALSE;
    return narrow;
}

} // namespace

fs::path full_path(const std::wstring& path) {
    const DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    std::wstring full(size, L'\0');
    full.resize(GetFullPathNameW(path.c_str(), size, full.data(), nullptr));
    return full;
}

Environment own_environment() {
    const std::unique_ptr<wchar_t, decltype(&FreeEnvironmentStringsW)> block(
        GetEnvironmentStringsW(), &FreeEnvironmentStringsW);
    return block ? parse_environment(block.get()) : Environment();
}

Program find_program(const Words& words, const Environment& environment) {
    const fs::path file = find_file(words.front(), environment);
    if (!is_library(words.front())) {
        Program program{file, words, {}};
        if (words.size() > 1 && is_library(words[1]) &&
            equals_ignore_case(file.filename().wstring(), L"dotnet.exe")) {
            program.assembly = full_path(words[1]);
        }
        return program;
    }
    Program program;
    if (!file.empty()) {
        // dotnet.exe looks for it in the current folder only.
        program = {find_dotnet(environment), {L"dotnet", file.wstring()}, file};
        program.words.insert(program.words.end(), words.begin() + 1, words.end());
    }
    return program;
}

std::optional<std::string> in_code_page(const std::wstring& text) {
    bool is_exact = false;
    std::string narrow = narrowed(text, is_exact);
    return is_exact ? std::optional(std::move(narrow)) : std::nullopt;
}

std::string gate_name(const fs::path& file) {
    bool ignored = false;
    const std::string path = narrowed(file.wstring(), ignored).substr(0, MAX_PATH - 1);
    return path.substr(path.rfind('\\') + 1);
}

} // namespace corvane::tool
