// What a snapshot costs, and what a program loses by being sampled, in a real runtime. The program
// that is started here measures and prints; see program/Program.cs.
// Usage: sampling_bench [SNAPSHOTS [ROUNDS]]; the runtime is found through CORVANE_DOTNET_ROOTS.
#include "bench/measuring.h"

#include <process.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

namespace fs = std::filesystem;
using corvane::measuring::own_folder;

int bench(const std::wstring& snapshots, const std::wstring& rounds) {
    const wchar_t* const roots = _wgetenv(L"CORVANE_DOTNET_ROOTS");
    if (roots == nullptr) {
        throw std::runtime_error("CORVANE_DOTNET_ROOTS is not set");
    }
    const fs::path work =
        fs::temp_directory_path() / ("corvane bench " + std::to_string(GetCurrentProcessId()));
    fs::create_directory(work);
    std::ofstream(work / "agent.config")
        << "<configuration><instrumentation><applications><application "
           "name='sample_me.exe' corvane='Enabled'/></applications></instrumentation>"
           "</configuration>";
    const std::pair<const wchar_t*, std::wstring> environment[] = {
        {L"DOTNET_ROOT", (fs::absolute(roots) / "10").make_preferred().wstring()},
        {L"CORECLR_ENABLE_PROFILING", L"1"},
        {L"CORECLR_PROFILER", L"{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}"},
        {L"CORECLR_PROFILER_PATH", (own_folder() / "sampling_probe.dll").wstring()},
        {L"CORVANE_PROBE", (own_folder() / "CorvaneProfiler.dll").wstring()},
        {L"CORVANE_HOME_APM_DOTNET", work.wstring()},
    };
    for (const auto& [name, value] : environment) {
        _wputenv_s(name, value.c_str());
    }
    const fs::path program = own_folder() / "managed" / "sample_me" / "sample_me.exe";
    const std::intptr_t exit_code =
        _wspawnl(_P_WAIT, program.c_str(), L"sample_me.exe", snapshots.c_str(), rounds.c_str(),
                 static_cast<const wchar_t*>(nullptr));
    fs::remove_all(work);
    if (exit_code != 0) {
        throw std::runtime_error("the program failed");
    }
    return EXIT_SUCCESS;
}

} // namespace

int main(int count, char** arguments) {
    try {
        return bench(std::to_wstring(count > 1 ? std::stoi(arguments[1]) : 1000),
                     std::to_wstring(count > 2 ? std::stoi(arguments[2]) : 7));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "sampling_bench: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
