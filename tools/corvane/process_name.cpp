#include "tools/corvane/process_name.h"

#include "tools/corvane/utf8.h"

#include <filesystem>

namespace corvane::tool {

OwnedHandle open_process(DWORD process) {
    return OwnedHandle(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process));
}

std::string process_name(HANDLE process) {
    std::wstring path(32'768, L'\0'); // the longest of all
    auto size = static_cast<DWORD>(path.size());
    if (process == nullptr || QueryFullProcessImageNameW(process, 0, path.data(), &size) == FALSE) {
        return "?";
    }
    path.resize(size);
    return to_utf8(std::filesystem::path(path).filename().wstring());
}

} // namespace corvane::tool
