// What a method costs that is compiled and is none of ours: the time of JITCompilationStarted in a
// real runtime, without and with 100 patterns of methods, held against a profiler that describes
// every method and does nothing with it (floor) and one that does nothing (idle); what it takes
// from the heap; and what a whole run of a compiler takes, held against idle. Usage:
// selection_bench [RUNS [METHODS [PAIRS]]]; the runtime is found through CORVANE_DOTNET_ROOTS. The
// profilers take turns, so that a machine that is busy for a while is busy for all of them.
#include "bench/measuring.h"
#include "bench/selection/process_costs.h"
#include "selection/jit_flow.h"
#include "selection/module_facts.h"
#include "selection/target_methods.h"
#include "tests/support/allocations.h"
#include "tests/support/real_methods.h"

#include <process.h>

#include <chrono>
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
    std::wstring patterns;       // CORVANE_METHODS
    std::vector<double> medians; // of each run, in ticks
    std::vector<double> means;
    std::size_t calls = 0;
};

// A program that is run under the profilers, with one argument.
struct Program {
    std::wstring name;
    std::wstring argument;
    bool compiles_all; // at once and for good, without precompiled code
};

struct Run {
    double seconds;
    measuring::ProcessCosts costs;
    std::vector<std::uint32_t> times; // of the calls, in ticks
};

// The program is no debuggee: the heap of one is slower.
Run run(const Program& program, const Profiler& profiler, const fs::path& work,
        const fs::path& dotnet_root) {
    const fs::path output = work / "output.bin";
    fs::remove(output);
    const wchar_t* const compiled = program.compiles_all ? L"0" : L"1";
    const std::pair<const wchar_t*, std::wstring> environment[] = {
        {L"DOTNET_ROOT", dotnet_root.wstring()},
        {L"DOTNET_TieredCompilation", compiled},
        {L"DOTNET_ReadyToRun", compiled},
        {L"CORECLR_ENABLE_PROFILING", L"1"},
        {L"CORECLR_PROFILER", L"{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}"},
        {L"CORECLR_PROFILER_PATH", (own_folder() / "selection_probe.dll").wstring()},
        {L"CORVANE_PROBE", profiler.probed},
        {L"CORVANE_PROBE_OUTPUT", output.wstring()},
        {L"CORVANE_METHODS", profiler.patterns},
        {L"CORVANE_HOME_APM_DOTNET", work.wstring()},
    };
    for (const auto& [name, value] : environment) {
        _wputenv_s(name, value.c_str());
    }
    const fs::path path = own_folder() / "managed" / program.name / (program.name + L".exe");
    const auto start = std::chrono::steady_clock::now();
    const std::intptr_t exit_code =
        _wspawnl(_P_WAIT, path.c_str(), path.c_str(), program.argument.c_str(),
                 static_cast<const wchar_t*>(nullptr));
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    std::ifstream file(output, std::ios::binary | std::ios::ate);
    if (exit_code != 0 || !file) {
        throw std::runtime_error(std::string("the program failed below '") + profiler.name + "'");
    }
    Run result{taken.count(), {}, {}};
    result.times.resize((static_cast<std::size_t>(file.tellg()) - sizeof(result.costs)) /
                        sizeof(result.times[0]));
    if (result.times.size() < 1000) {
        throw std::runtime_error(std::string("'") + profiler.name + "' was hardly called");
    }
    file.seekg(0);
    file.read(reinterpret_cast<char*>(&result.costs), sizeof(result.costs));
    file.read(reinterpret_cast<char*>(result.times.data()),
              static_cast<std::streamsize>(result.times.size() * sizeof(result.times[0])));
    return result;
}

// --- A whole process

struct ProcessComparison {
    double wall = 0; // medians over the pairs of ours to idle, as quotients
    double processor = 0;
    double memory_mb = 0; // the difference
    double idle_seconds = 0;
    double idle_mb = 0;
    std::size_t calls = 0;
};

ProcessComparison compare_processes(int pairs, const Profiler& ours, const Profiler& idle,
                                    const fs::path& work, const fs::path& dotnet_root) {
    constexpr double kMega = 1024 * 1024;
    const Program compiler{L"compiler", fs::path(CORVANE_SOURCES).make_preferred().wstring(),
                           false};
    std::vector<double> wall, processor, memory, idle_seconds, idle_mb;
    ProcessComparison comparison;
    for (int pair = 0; pair < pairs; ++pair) {
        Run runs[2];
        for (const int turn : {0, 1}) { // whose turn comes first alternates
            const bool is_ours = (turn + pair) % 2 == 0;
            runs[is_ours ? 0 : 1] = run(compiler, is_ours ? ours : idle, work, dotnet_root);
        }
        const auto& [our_run, idle_run] = runs;
        wall.push_back(our_run.seconds / idle_run.seconds);
        processor.push_back(static_cast<double>(our_run.costs.processor_time) /
                            static_cast<double>(idle_run.costs.processor_time));
        memory.push_back((static_cast<double>(our_run.costs.peak_memory) -
                          static_cast<double>(idle_run.costs.peak_memory)) /
                         kMega);
        idle_seconds.push_back(idle_run.seconds);
        idle_mb.push_back(static_cast<double>(idle_run.costs.peak_memory) / kMega);
        comparison.calls = our_run.times.size();
    }
    comparison.wall = median(wall);
    comparison.processor = median(processor);
    comparison.memory_mb = median(memory);
    comparison.idle_seconds = median(idle_seconds);
    comparison.idle_mb = median(idle_mb);
    return comparison;
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
        if (needs_description(&methods, function)) {
            on_jit_compilation_started(&methods, function, {}, no_rewriting);
        }
    }
    return static_cast<double>(testing::allocations() - before) /
           static_cast<double>(functions.size());
}

// As a user has them for a program of his own, and of which none means a method of the runtime.
std::wstring hundred_patterns() {
    std::wstring all;
    for (int area = 0; area < 25; ++area) {
        const std::wstring name = L"Shop.Area" + std::to_wstring(area);
        all += name + L".*;" + name + L".*.Reserve;!" + name + L".Internal.*;" + name +
               L".Cart+Item..ctor;";
    }
    return all;
}

int bench(int runs, const std::wstring& methods, int pairs) {
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
           "name='compile_many.exe' corvane='Enabled'/><application name='compiler.exe' "
           "corvane='Enabled'/></applications></instrumentation></configuration>";

    const std::wstring ours = (own_folder() / "CorvaneProfiler.dll").wstring();
    Profiler profilers[] = {
        {"ours", ours, L"", {}, {}},
        {"patterns", ours, hundred_patterns(), {}, {}},
        {"floor", L"floor", L"", {}, {}},
        {"idle", L"idle", L"", {}, {}},
    };
    const auto& [plain, patterns, floor, idle] = profilers;
    const Program compile_many{L"compile_many", methods, true};
    for (int i = 0; i < runs; ++i) {
        for (Profiler& profiler : profilers) {
            const auto times = run(compile_many, profiler, work, dotnet_root).times;
            double sum = 0;
            for (const std::uint32_t time : times) {
                sum += time;
            }
            profiler.calls = times.size();
            profiler.medians.push_back(median(times));
            profiler.means.push_back(sum / static_cast<double>(times.size()));
        }
    }
    const ProcessComparison process = compare_processes(pairs, plain, idle, work, dotnet_root);
    fs::remove_all(work);

    const double allocations = count_allocations(*runtime);
    const double tick = nanoseconds_a_tick();
    std::printf("JITCompilationStarted of a method that is not chosen, %d runs\n", runs);
    std::printf("%-8s %10s %14s %14s\n", "", "calls", "median ns", "mean ns");
    for (const Profiler& profiler : profilers) {
        std::printf("%-8s %10zu %14.0f %14.0f\n", profiler.name, profiler.calls,
                    median(profiler.medians) * tick, median(profiler.means) * tick);
    }
    const auto ratio = [](const Profiler& one, const Profiler& other) {
        std::vector<double> ratios;
        for (std::size_t i = 0; i < other.medians.size(); ++i) {
            ratios.push_back(one.medians[i] / other.medians[i]);
        }
        return median(ratios);
    };
    std::printf(
        "\nA compiler run, %d pairs with idle: %zu calls, idle %.2f s and %.0f MB, times as long "
        "%.3f, processor time %.3f\n",
        pairs, process.calls, process.idle_seconds, process.idle_mb, process.wall,
        process.processor);
    std::printf("selection: floor=%.2f patterns=%.2f idle=%.0f allocations=%.2f process=%.3f "
                "processor=%.3f memory_mb=%.1f\n",
                ratio(plain, floor), ratio(patterns, floor), ratio(plain, idle), allocations,
                process.wall, process.processor, process.memory_mb);
    return EXIT_SUCCESS;
}

} // namespace

int main(int count, char** arguments) {
    try {
        const auto number = [&](int index, int otherwise) {
            return count > index ? std::stoi(arguments[index]) : otherwise;
        };
        return bench(number(1, 7), std::to_wstring(number(2, 4000)), number(3, 20));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "selection_bench: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
