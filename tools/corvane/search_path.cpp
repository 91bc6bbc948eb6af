#include "tools/corvane/search_path.h"

#include <algorithm>

namespace corvane::tool {
namespace {

// What has an extension may be whole; what has none is a program's file only if nothing else is.
Words file_names(const std::wstring& name) {
    const std::wstring with_extension = name + L".exe";
    return name.find(L'.', name.find_last_of(L"\\/:") + 1) == name.npos // npos + 1 is 0
               ? Words{with_extension, name}
               : Words{name, with_extension};
}

} // namespace

Words folders_of(std::wstring_view path) {
    Words folders;
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find(L';', begin), path.size());
        std::wstring folder(path.substr(begin, end - begin));
        std::erase(folder, L'"');
        if (!folder.empty()) {
            folders.push_back(std::move(folder));
        }
        begin = end + 1;
    }
    return folders;
}

Words candidates(const std::wstring& name, const Words& folders) {
    const Words names = file_names(name);
    if (name.find_first_of(L"\\/:") != name.npos) {
        return names;
    }
    Words files;
    for (const std::wstring& file : names) {
        for (const std::wstring& folder : folders) {
            files.push_back(folder + (folder.ends_with(L'\\') ? L"" : L"\\") + file);
        }
    }
    return files;
}

Words possible_programs(const std::wstring& line) {
    Words programs;
    if (line.starts_with(L'"')) {
        return programs;
    }
    for (std::size_t end = 0; end < line.size();) {
        end = std::min(line.find(L' ', end + 1), line.size());
        programs.push_back(line.substr(0, end));
    }
    return programs;
}

} // namespace corvane::tool
