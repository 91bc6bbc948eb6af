// What a call of an instrumented method costs, by its number of parameters, against one that does
// the same by hand in C#: in a real runtime with the profiler in it, while nothing is recorded,
// while every call is, while calls are only counted because the recorder keeps no more, while every
// call is a span in a file, and while somebody listens to activities. And how much faster many
// threads make spans than one, and how much faster they only compute: a machine may not have for
// them what it says.
// Usage: call_bench [RUNS]; the runtime is found through CORVANE_DOTNET_ROOTS.
// They take turns, so that a machine that is busy for a while is busy for all of them.
#include "bench/measuring.h"
#include "tests/support/real_methods.h"

#include <process.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace corvane;
using measuring::median;
using measuring::own_folder;

// --- Running

// Of one run: medians, in nanoseconds a call.
struct Times {
    int parameters = 0;
    double plain = 0;
    double instrumented = 0;
    double by_hand = 0;
    double bytes = 0; // of an instrumented call
};

enum class Record { kNone, kTree, kSpans, kActivities };

struct Mode {
    const char* title;
    Record record;
    const wchar_t* calls; // in a row: not many, so that what interrupts them stands out
    const wchar_t* repeats;
    const wchar_t* filling; // calls that are recorded before
    bool drops;             // there is no room left for those that are measured
    const wchar_t* besides; // what the program does besides; null for nothing
    bool serves = false;    // with the collector of garbage that services have
    std::vector<std::vector<Times>> runs = {};
    std::vector<double> speeds = {};    // of 16 threads, in that of one
    std::vector<double> computing = {}; // the same where they only compute
};

std::string last_line(const fs::path& path) {
    std::ifstream file(path);
    std::string last;
    for (std::string line; std::getline(file, line);) {
        last = line;
    }
    return last;
}

bool is_in(const fs::path& path, const std::string& text) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

// Whether the recorder kept the calls that it was meant to keep. How many spans are written depends
// on the disk.
void check_recording(const Mode& mode, const fs::path& tree, const fs::path& spans) {
    const bool records = mode.record == Record::kTree;
    const std::string figures = records ? last_line(tree) : "";
    unsigned long recorded = 0;
    unsigned long threads = 0;
    unsigned long dropped = 0;
    const bool is_told = std::sscanf(figures.c_str(), "%lu calls, %lu threads, %lu dropped",
                                     &recorded, &threads, &dropped) == 3;
    if (is_told != records || fs::exists(tree) != records ||
        is_in(spans, "CallMethods.Methods2.Traced") != (mode.record == Record::kSpans) ||
        mode.drops != (dropped > 0) || figures.find("failures") != std::string::npos) {
        throw std::runtime_error(std::string(mode.title) + ": not as recorded: " + figures);
    }
}

void run(Mode& mode, const fs::path& work, const fs::path& dotnet_root) {
    const fs::path output = work / "times.txt";
    const fs::path tree = work / "calls.txt";
    const fs::path spans = work / "spans.json";
    fs::remove(output);
    fs::remove(tree);
    fs::remove(spans);
    const std::pair<const wchar_t*, std::wstring> environment[] = {
        {L"DOTNET_ROOT", dotnet_root.wstring()},
        {L"CORECLR_ENABLE_PROFILING", L"1"},
        {L"CORECLR_PROFILER", L"{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}"},
        {L"CORECLR_PROFILER_PATH", (own_folder() / "CorvaneProfiler.dll").wstring()},
        {L"CORVANE_HOME_APM_DOTNET", work.wstring()},
        {L"CORVANE_STRICT_IL", L"1"},
        {L"DOTNET_gcServer", mode.serves ? L"1" : L"0"},
        // None if empty.
        {L"CORVANE_CALL_TREE", mode.record == Record::kTree ? tree.wstring() : L""},
        {L"CORVANE_OTLP_FILE", mode.record == Record::kSpans ? spans.wstring() : L""},
    };
    for (const auto& [name, value] : environment) {
        _wputenv_s(name, value.c_str());
    }
    const fs::path program = own_folder() / "managed" / "call_methods" / "call_methods.exe";
    const std::wstring quoted_output = L'"' + output.wstring() + L'"';
    const std::intptr_t exit_code =
        _wspawnl(_P_WAIT, program.c_str(), L"call_methods.exe", quoted_output.c_str(), mode.calls,
                 mode.repeats, mode.filling, mode.besides, static_cast<const wchar_t*>(nullptr));
    if (exit_code != 0) {
        throw std::runtime_error(std::string(mode.title) + ": the program failed");
    }
    check_recording(mode, tree, spans);

    std::vector<Times> all;
    std::ifstream file(output);
    for (Times times; file >> times.parameters >> times.plain >> times.instrumented >>
                      times.by_hand >> times.bytes;) {
        all.push_back(times);
    }
    mode.runs.push_back(std::move(all));

    file.clear();
    std::string word;
    double speed = 0;
    double computing = 0;
    while (file >> word >> speed >> computing) {
        mode.speeds.push_back(speed);
        mode.computing.push_back(computing);
    }
}

// --- Figures

struct Figures {
    double plain = 0;
    double added = 0;         // nanoseconds
    double added_by_hand = 0; // the same
    double ratio = 0;         // of the two, each within one run
    double bytes = 0;
};

Figures figures_of(const Mode& mode, std::size_t row) {
    const auto over_runs = [&](const std::function<double(const Times&)>& figure) {
        std::vector<double> values;
        for (const std::vector<Times>& run : mode.runs) {
            values.push_back(figure(run.at(row)));
        }
        return median(values);
    };
    return {over_runs([](const Times& t) { return t.plain; }),
            over_runs([](const Times& t) { return t.instrumented - t.plain; }),
            over_runs([](const Times& t) { return t.by_hand - t.plain; }),
            over_runs(
                [](const Times& t) { return (t.instrumented - t.plain) / (t.by_hand - t.plain); }),
            over_runs([](const Times& t) { return t.bytes; })};
}

Figures figures_for(const Mode& mode, int parameters) {
    const std::vector<Times>& rows = mode.runs.at(0);
    const auto row = std::ranges::find(rows, parameters, &Times::parameters);
    return figures_of(mode, static_cast<std::size_t>(row - rows.begin()));
}

void print(const Mode& mode) {
    std::printf("%s\n%-12s %12s %12s %12s %8s %8s\n", mode.title, "parameters", "plain", "added",
                "by hand", "ratio", "bytes");
    for (std::size_t row = 0; row < mode.runs.at(0).size(); ++row) {
        const Figures figures = figures_of(mode, row);
        std::printf("%-12d %12.1f %12.1f %12.1f %8.2f %8.0f\n", mode.runs[0][row].parameters,
                    figures.plain, figures.added, figures.added_by_hand, figures.ratio,
                    figures.bytes);
    }
    std::printf("\n");
}

int bench(int runs) {
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
           "name='call_methods.exe' corvane='Enabled'/></applications></instrumentation>"
           "</configuration>";

    Mode modes[] = {
        {"Nothing is recorded", Record::kNone, L"500", L"201", L"0", false, nullptr},
        // Few enough that the recorder has room for all of them.
        {"Every call is recorded", Record::kTree, L"100", L"51", L"0", false, nullptr},
        {"Calls are only counted: the recorder is full", Record::kTree, L"500", L"201", L"100000",
         true, nullptr},
        {"Every call is a span in a file", Record::kSpans, L"100", L"51", L"0", false, L"threads"},
        {"Somebody listens to activities", Record::kActivities, L"100", L"51", L"0", false,
         L"listen"},
        {"Every call is a span in a file, in a service", Record::kSpans, L"100", L"51", L"0", false,
         L"threads", true},
    };
    for (int i = 0; i < runs; ++i) {
        for (Mode& mode : modes) {
            run(mode, work, dotnet_root);
        }
    }
    fs::remove_all(work);

    std::printf("Nanoseconds that instrumentation adds to a call, %d runs\n\n", runs);
    for (const Mode& mode : modes) {
        print(mode);
    }
    const Figures five = figures_for(modes[0], 5);
    const Figures span = figures_for(modes[3], 2);
    std::printf("A span takes %.0f bytes beyond those that the injected code takes itself\n",
                span.bytes - figures_for(modes[2], 2).bytes); // which records nothing
    const double speed = median(modes[3].speeds);
    const double service_speed = median(modes[5].speeds);
    std::vector<double> computing = modes[3].computing;
    computing.insert(computing.end(), modes[5].computing.begin(), modes[5].computing.end());
    const double computing_speed = median(computing);
    const unsigned processors = std::max(1U, std::thread::hardware_concurrency());
    std::printf("16 threads that record spans are %.2f times as fast as one, in a service %.2f "
                "times; if they only compute, %.2f times, on %u processors\n\n",
                speed, service_speed, computing_speed, processors);
    std::printf("call: none=%.0f five=%.0f fifty=%.0f ratio_five=%.2f recorded_five=%.0f "
                "full_five=%.0f span=%.0f activity=%.0f threads=%.2f "
                "service_threads=%.2f computing_threads=%.2f\n",
                figures_for(modes[0], 0).added, five.added, figures_for(modes[0], 50).added,
                five.ratio, figures_for(modes[1], 5).added, figures_for(modes[2], 5).added,
                span.added, figures_for(modes[4], 2).added, speed / processors,
                service_speed / processors, computing_speed / processors);
    return EXIT_SUCCESS;
}

} // namespace

int main(int count, char** arguments) {
    try {
        return bench(count > 1 ? std::stoi(arguments[1]) : 9);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "call_bench: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
