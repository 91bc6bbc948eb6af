#include "profiler/process_facts.h"

#include "base/local_memory.h"

#include <windows.h>

#include <shellapi.h>

#include <cstdlib>

namespace corvane {
namespace {

std::string executable_name() {
    char path[MAX_PATH + 1] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string text(path);
    return text.substr(text.rfind('\\') + 1); // npos + 1 is 0: without a separator, all of it
}

std::optional<std::vector<std::wstring>> arguments() {
    int count = 0;
    const LocalMemory<LPWSTR> list(CommandLineToArgvW(GetCommandLineW(), &count));
    if (!list) {
        return std::nullopt;
    }
    return std::vector<std::wstring>(list.get(), list.get() + count);
}

} // namespace

ProcessFacts read_process_facts() {
    ProcessFacts facts;
    facts.executable_name = executable_name();
    if (const char* const type = std::getenv("APP_TYPE")) {
        facts.app_type = type;
    }
    facts.arguments = arguments();
    return facts;
}

} // namespace corvane
