// What a method costs that is compiled and is none of ours: the time of JITCompilationStarted in a
// real runtime, held against a profiler that only asks the runtime the same questions (floor) and
// one that does nothing (idle), and what it takes from the heap.
// Usage: selection_bench [RUNS [METHODS]]; the runtime is found through CORVANE_DOTNET_ROOTS.
// The three take turns, so that a machine that is busy for a while is busy for all of them.
#include "bench/measuring.h"
#include "selection/jit_flow.h"
#include "selection/target_methods.h"
#include "tests/support/allocations.h"
#include "tests/support/real_methods.h"

#include <process.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace corvane;
using measuring::median;
using measuring::nanoseconds_a_tick;
using measuring::own_folder;

// --- Time

struct Profiler {
    const char* name;
    std::wstring probed;
    std::vector<double> medians; // of each run, in ticks
    std::vector<double> means;
    std::size_t calls = 0;
};

// Times in ticks of all calls of one run. The program is no debuggee: the heap of one is slower.
std::vector<std::uint32_t> run(const Profiler& profiler, const std::wstring& methods,
                               const fs::path& work, const fs::path& dotnet_root) {
    const fs::path times_file = work / "times.bin";
    fs::remove(times_file);
    const std::pair<const wchar_t*, std::wstring> environment[] = {
        {L"DOTNET_ROOT", dotnet_root.wstring()},
        {L"DOTNET_TieredCompilation", L"0"},
        {L"DOTNET_ReadyToRun", L"0"},
        {L"CORECLR_ENABLE_PROFILING", L"1"},
        {L"CORECLR_PROFILER", L"{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}"},
        {L"CORECLR_PROFILER_PATH", (own_folder() / "selection_probe.dll").wstring()},
        {L"CORVANE_PROBE", profiler.probed},
        {L"CORVANE_PROBE_OUTPUT", times_file.wstring()},
        {L"CORVANE_HOME_APM_DOTNET", work.wstring()},
    };
    for (const auto& [name, value] : environment) {
        _wputenv_s(name, value.c_str());
    }
    const fs::path program = own_folder() / "managed" / "compile_many" / "compile_many.exe";
    const std::intptr_t exit_code = _wspawnl(_P_WAIT, program.c_str(), L"compile_many.exe",
                                             methods.c_str(), static_cast<const wchar_t*>(nullptr));
    std::ifstream file(times_file, std::ios::binary | std::ios::ate);
    if (exit_code != 0 || !file) {
        throw std::runtime_error(std::string("the program failed below '") + profiler.name + "'");
    }
    std::vector<std::uint32_t> times(static_cast<std::size_t>(file.tellg()) / sizeof(times[0]));
    file.seekg(0);
    file.read(reinterpret_cast<char*>(times.data()),
              static_cast<std::streamsize>(times.size() * sizeof(times[0])));
    if (times.size() < 1000) {
        throw std::runtime_error(std::string("'") + profiler.name + "' was hardly called");
    }
    return times;
}

// --- Memory

HRESULT no_rewriting(RewriteContext&, ICorProfilerInfo*, const method_info&, InstrumentationMode) {
    throw std::logic_error("a method was chosen");
}

// Requests for one method, over all of the library that the program compiles methods of.
double count_allocations(const fs::path& runtime) {
    const auto dispenser = testing::metadata_dispenser(runtime);
    if (!dispenser) {
        throw std::runtime_error("no metadata engine in " + runtime.string());
    }
    testing::RealMethods methods(*dispenser.get(), runtime / "System.Private.Xml.dll");
    const std::vector<FunctionID> functions = methods.with_body();
    build_target_methods({});
    const std::size_t before = testing::allocations();
    for (const FunctionID function : functions) {
        on_jit_compilation_started(&methods, function, {}, no_rewriting);
    }
    return static_cast<double>(testing::allocations() - before) /
           static_cast<double>(functions.size());
}

int bench(int runs, const std::wstring& methods) {
    const auto runtime = testing::newest_runtime_folder();
    if (!runtime) {
        throw std::runtime_error("CORVANE_DOTNET_ROOTS names no folder with runtime 10");
    }
    const fs::path dotnet_root = runtime->parent_path().parent_path().parent_path();
    const fs::path work =
        fs::temp_directory_path() / ("corvane bench " + std::to_string(GetCurrentProcessId()));
    fs::create_directory(work);
    std::ofstream(work / "agent.config")
        << "<configuration><instrumentation><applications><application "
           "name='compile_many.exe' corvane='Enabled'/></applications></instrumentation>"
           "</configuration>";

    Profiler profilers[] = {
        {"ours", (own_folder() / "CorvaneProfiler.dll").wstring(), {}, {}},
        {"floor", L"floor", {}, {}},
        {"idle", L"idle", {}, {}},
    };
    for (int i = 0; i < runs; ++i) {
        for (Profiler& profiler : profilers) {
            const auto times = run(profiler, methods, work, dotnet_root);
            double sum = 0;
            for (const std::uint32_t time : times) {
                sum += time;
            }
            profiler.calls = times.size();
            profiler.medians.push_back(median(times));
            profiler.means.push_back(sum / static_cast<double>(times.size()));
        }
    }
    fs::remove_all(work);

    const double allocations = count_allocations(*runtime);
    const double tick = nanoseconds_a_tick();
    std::printf("JITCompilationStarted of a method that is not chosen, %d runs\n", runs);
    std::printf("%-8s %10s %14s %14s\n", "", "calls", "median ns", "mean ns");
    for (const Profiler& profiler : profilers) {
        std::printf("%-8s %10zu %14.0f %14.0f\n", profiler.name, profiler.calls,
                    median(profiler.medians) * tick, median(profiler.means) * tick);
    }
    const auto ratio = [&](const Profiler& other) {
        std::vector<double> ratios;
        for (std::size_t i = 0; i < other.medians.size(); ++i) {
            ratios.push_back(profilers[0].medians[i] / other.medians[i]);
        }
        return median(ratios);
    };
    std::printf("selection: floor=%.2f idle=%.0f allocations=%.2f\n", ratio(profilers[1]),
                ratio(profilers[2]), allocations);
    return EXIT_SUCCESS;
}

} // namespace

int main(int count, char** arguments) {
    try {
        return bench(count > 1 ? std::stoi(arguments[1]) : 7,
                     std::to_wstring(count > 2 ? std::stoi(arguments[2]) : 4000));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "selection_bench: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
