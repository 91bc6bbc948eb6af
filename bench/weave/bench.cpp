// How much longer a program takes when every method of a large library that it uses is traced: a
// compiler at work in a real runtime, plain and with the profiler in it, in strict IL. Nobody reads
// the log, and nothing is recorded. One more run counts the bodies that were rewritten.
// Usage: weave_bench SOURCES [PAIRS]; the runtime is found through CORVANE_DOTNET_ROOTS.
// The two take turns, so that a machine that is busy for a while is busy for both of them.
#include "bench/measuring.h"
#include "tests/support/observations.h"
#include "tests/support/real_methods.h"

#include <process.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace corvane;
using measuring::median;
using measuring::own_folder;

using Environment = std::map<std::wstring, std::wstring>; // an empty value: none

constexpr std::intptr_t kSuccess = 42;

struct Run {
    double seconds = 0;
    double compiling_seconds = 0; // on all threads
    double compiled = 0;          // methods, each tier on its own
    std::string result;
};

double now() {
    LARGE_INTEGER frequency;
    LARGE_INTEGER count;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&count);
    return static_cast<double>(count.QuadPart) / static_cast<double>(frequency.QuadPart);
}

class Bench {
public:
    Bench(std::wstring sources, fs::path work, const fs::path& dotnet_root)
        : sources_(std::move(sources)), work_(std::move(work)) {
        _wputenv_s(L"DOTNET_ROOT", dotnet_root.c_str());
        _wputenv_s(L"CORECLR_PROFILER", L"{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}");
        _wputenv_s(L"CORVANE_HOME_APM_DOTNET", work_.c_str());
        _wputenv_s(L"CORVANE_STRICT_IL", L"1");
        std::ofstream(work_ / "agent.config")
            << "<configuration><instrumentation><applications><application name='woven.exe' "
               "corvane='Enabled'/></applications></instrumentation></configuration>";
    }

    Run plain() {
        return run({{L"CORECLR_ENABLE_PROFILING", L"0"}, {L"DOTNET_STARTUP_HOOKS", L""}});
    }

    Run all() { return run(profiled(L"CorvaneProfiler.dll")); }

    std::size_t count_bodies() {
        const fs::path report = work_ / "report.txt";
        Environment environment = profiled(L"observer.dll");
        environment[L"CORVANE_WITNESS_TARGET"] = (own_folder() / "CorvaneProfiler.dll").wstring();
        environment[L"CORVANE_OBSERVER_REPORT"] = report.wstring();
        run(environment);
        return testing::read_observations(report)["rewritten"].size();
    }

private:
    static Environment profiled(const wchar_t* library) {
        return {{L"CORECLR_ENABLE_PROFILING", L"1"},
                {L"CORECLR_PROFILER_PATH", (own_folder() / library).wstring()},
                {L"DOTNET_STARTUP_HOOKS",
                 (own_folder() / "managed" / "kite" / "kite.managed.dll").wstring()}};
    }

    Run run(const Environment& environment) {
        for (const auto& [name, value] : environment) {
            _wputenv_s(name.c_str(), value.c_str());
        }
        const fs::path output = work_ / "output.txt";
        fs::remove(output);
        const fs::path program = own_folder() / "managed" / "woven" / "woven.exe";
        const std::wstring sources = L'"' + sources_ + L'"';
        const std::wstring quoted_output = L'"' + output.wstring() + L'"';

        Run run;
        const double start = now();
        const std::intptr_t process =
            _wspawnl(_P_NOWAIT, program.c_str(), L"woven.exe", sources.c_str(),
                     quoted_output.c_str(), static_cast<const wchar_t*>(nullptr));
        auto* const handle = reinterpret_cast<HANDLE>(process);
        WaitForSingleObject(handle, INFINITE);
        run.seconds = now() - start;
        DWORD exit_code = 0;
        GetExitCodeProcess(handle, &exit_code);
        CloseHandle(handle);

        std::ifstream file(output);
        std::getline(file, run.result);
        if (exit_code != kSuccess || !(file >> run.compiling_seconds >> run.compiled)) {
            throw std::runtime_error("the program failed");
        }
        if (result_.empty()) {
            result_ = run.result;
        }
        if (run.result != result_) {
            throw std::runtime_error("the program made something else");
        }
        return run;
    }

    std::wstring sources_;
    fs::path work_;
    std::string result_;
};

double median_of(const std::vector<Run>& runs, double Run::*figure) {
    std::vector<double> values;
    for (const Run& run : runs) {
        values.push_back(run.*figure);
    }
    return median(values);
}

int bench(const std::wstring& sources, int pairs) {
    const auto runtime = testing::newest_runtime_folder();
    if (!runtime) {
        throw std::runtime_error("CORVANE_DOTNET_ROOTS names no folder with runtime 10");
    }
    const fs::path dotnet_root = runtime->parent_path().parent_path().parent_path();
    const fs::path work =
        fs::temp_directory_path() / ("corvane bench " + std::to_string(GetCurrentProcessId()));
    fs::create_directory(work);
    Bench bench(sources, work, dotnet_root);
    const std::size_t bodies = bench.count_bodies();

    std::vector<Run> plain;
    std::vector<Run> all;
    std::vector<double> ratios;
    for (int i = 0; i < pairs; ++i) {
        plain.push_back(bench.plain());
        all.push_back(bench.all());
        ratios.push_back(all.back().seconds / plain.back().seconds);
    }
    fs::remove_all(work);

    std::printf("A compiler with every method traced, medians of %d pairs\n", pairs);
    std::printf("%-8s %10s %12s %12s\n", "", "seconds", "compiling", "compiled");
    for (const auto* const runs : {&plain, &all}) {
        std::printf("%-8s %10.2f %12.2f %12.0f\n", runs == &plain ? "plain" : "all",
                    median_of(*runs, &Run::seconds), median_of(*runs, &Run::compiling_seconds),
                    median_of(*runs, &Run::compiled));
    }
    std::printf("weave: plain_s=%.2f all_s=%.2f ratio=%.2f bodies=%zu\n",
                median_of(plain, &Run::seconds), median_of(all, &Run::seconds), median(ratios),
                bodies);
    return EXIT_SUCCESS;
}

} // namespace

int main(int count, char** arguments) {
    if (count < 2) {
        std::fputs("usage: weave_bench SOURCES [PAIRS]\n", stderr);
        return 2;
    }
    try {
        return bench(fs::path(arguments[1]).wstring(), count > 2 ? std::stoi(arguments[2]) : 7);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "weave_bench: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
