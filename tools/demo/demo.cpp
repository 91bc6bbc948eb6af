// The demonstration: runs a real .NET program in a real runtime with the profiler in it, once for
// each kind of answer that the configuration can give. It says what was decided and why, and shows
// the calls that were recorded.
//
//   demo PROGRAM DOTNET_ROOT PROFILER LIBRARY
//
// Paths of the program, of a runtime, of the DLL and of the managed library. Exits with 0 when
// every run went as its configuration asks for.
#include "profiler/class_ids.h"
#include "tests/support/debuggee.h"

#include <windows.h>

#include <combaseapi.h>

#include <array>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

struct Scene {
    const char* title;
    const char* entry; // the program's entry in agent.config; %s is its file name
    bool profiled;
    const char* reason;
};

constexpr std::array kScenes = {
    Scene{"agent.config lists the program", R"(<application name="%s" corvane="Enabled"/>)", true,
          "agent.config has an entry for it that does not say Disabled"},
    Scene{"agent.config lists the program as disabled",
          R"(<application name="%s" corvane="Disabled"/>)", false,
          "its entry in agent.config says corvane=\"Disabled\""},
    Scene{"agent.config does not list the program",
          R"(<application name="another.exe" corvane="Enabled"/>)", false,
          "agent.config has no entry for it, and executables are profiled only by name"},
};

struct Paths {
    fs::path program;
    fs::path dotnet_root;
    fs::path profiler;
    fs::path library;
    fs::path home; // the folder of agent.config

    [[nodiscard]] fs::path output() const { return home / "output.txt"; }
    [[nodiscard]] fs::path calls() const { return home / "calls.txt"; }
};

// ASCII, with every run of blanks and line ends as one blank.
std::string one_line(const std::wstring& text) {
    std::string result;
    for (const wchar_t c : text) {
        if (c > L' ') {
            result += c < 0x80 ? static_cast<char>(c) : '?';
        } else if (!result.empty() && result.back() != ' ') {
            result += ' ';
        }
    }
    return result;
}

std::string entry_of(const Scene& scene, const Paths& paths) {
    std::array<char, 512> text{};
    std::snprintf(text.data(), text.size(), scene.entry, paths.program.filename().string().c_str());
    return text.data();
}

void write_agent_config(const Paths& paths, const std::string& entry) {
    std::ofstream file(paths.home / "agent.config");
    file << "<configuration>\n  <instrumentation>\n    <applications>\n      " << entry
         << "\n    </applications>\n  </instrumentation>\n</configuration>\n";
}

corvane::DebuggeeOptions options_for(const Paths& paths) {
    std::array<wchar_t, 40> class_id{};
    StringFromGUID2(corvane::kProfilerClassId, class_id.data(), static_cast<int>(class_id.size()));
    corvane::DebuggeeOptions options;
    options.program = paths.program.wstring();
    options.environment = {
        {L"CORECLR_ENABLE_PROFILING", L"1"},
        {L"CORECLR_PROFILER", class_id.data()},
        {L"CORECLR_PROFILER_PATH", paths.profiler.wstring()},
        {L"CORVANE_HOME_APM_DOTNET", paths.home.wstring()},
        {L"CORVANE_STRICT_IL", L"1"},
        {L"CORVANE_CALL_TREE", paths.calls().wstring()},
        {L"CORVANE_VALUES", L"all"},
        {L"DOTNET_STARTUP_HOOKS", paths.library.wstring()},
        {L"DOTNET_ROOT", paths.dotnet_root.wstring()},
        {L"DOTNET_MULTILEVEL_LOOKUP", L"0"},
    };
    options.output_file = paths.output().wstring();
    return options;
}

// The profiler starts its log lines with a thread id. For each method that it instruments it also
// shows the new body and every type reference that it walks past, which nobody reads in passing;
// and the runtime has something to say there as well.
bool is_worth_printing(const std::wstring& line) {
    return !line.empty() && line.front() >= L'0' && line.front() <= L'9' &&
           line.find(L"TRAVERSING TYPE") == std::wstring::npos && !line.ends_with(L"=====");
}

void print_debug_output(const std::wstring& line) {
    if (!is_worth_printing(line)) {
        return;
    }
    const std::string text = one_line(line);
    std::printf("    profiler | %s\n", text.c_str());
    if (text.find("do_not_instrument.txt") != std::string::npos) {
        std::printf(
            "             | (The file is optional: without it only the tracing library itself "
            "is excluded.)\n");
    }
}

void print_file(const fs::path& path, const char* mark) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        std::printf("    %s | %s\n", mark, line.c_str());
    }
}

// The calls of each thread stand below a line of its own.
bool has_calls(const fs::path& path) {
    std::ifstream file(path);
    std::string line;
    return std::getline(file, line) && line.starts_with("thread");
}

// Plays one scene; true when it went as its configuration asks for.
bool play(const Scene& scene, const Paths& paths) {
    const std::string entry = entry_of(scene, paths);
    std::printf("    agent.config says: %s\n\n", entry.c_str());
    write_agent_config(paths, entry);
    fs::remove(paths.calls()); // a program that is left alone writes none

    bool loaded = false;
    bool active = false;
    corvane::DebuggeeOptions options = options_for(paths);
    options.on_debug_output = [&](const std::wstring& line) {
        loaded = loaded || line.ends_with(L"CClrProfiler::Initialize(): Invoked");
        active = active || line.ends_with(L"CClrProfiler::Initialize(): after should trace");
        print_debug_output(line);
    };
    const corvane::DebuggeeResult result = corvane::run_debuggee(options);
    print_file(paths.output(), "program ");
    const bool recorded = has_calls(paths.calls());
    if (recorded) {
        std::printf("\n    The calls that were recorded, with arguments, results and times:\n\n");
        print_file(paths.calls(), "calls   ");
    }

    std::printf("\n    The runtime %s.\n", loaded
                                               ? "loaded CorvaneProfiler.dll and asked it to start"
                                               : "did NOT load CorvaneProfiler.dll");
    const bool as_asked = loaded && active == scene.profiled && recorded == scene.profiled;
    std::printf("    Decision: the program is %s%s%s.\n", active ? "PROFILED" : "LEFT ALONE",
                as_asked ? ", because " : "", as_asked ? scene.reason : "");
    std::printf("    The program ended with exit code %lu%s.\n\n",
                static_cast<unsigned long>(result.exit_code),
                result.timed_out ? ", ended by the demo because it took too long" : "");
    if (!as_asked || result.exit_code != 0 || result.timed_out) {
        std::printf("    This is not what agent.config asks for. The lines above say where it "
                    "went another way.\n\n");
        return false;
    }
    return true;
}

int run(const Paths& paths) {
    std::printf("Corvane demo: %s, %zu times with the profiler in it.\n"
                "Lines marked 'profiler' are from its diagnostic log, which goes to the debugger\n"
                "output; each starts with the id of the thread that wrote it. Lines marked\n"
                "'calls' are what the managed library wrote when the program ended.\n\n",
                paths.program.filename().string().c_str(), kScenes.size());
    int failures = 0;
    for (std::size_t i = 0; i < kScenes.size(); ++i) {
        std::printf("--- %zu of %zu: %s\n", i + 1, kScenes.size(), kScenes[i].title);
        failures += play(kScenes[i], paths) ? 0 : 1;
        std::fflush(stdout);
    }
    std::printf(failures == 0 ? "All runs went as their configuration asks for.\n"
                              : "%d of the runs did not go as their configuration asks for.\n",
                failures);
    return failures == 0 ? 0 : 1;
}

} // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: demo PROGRAM DOTNET_ROOT PROFILER LIBRARY\n");
        return 2;
    }
    try {
        Paths paths{argv[1], argv[2], argv[3], argv[4],
                    fs::temp_directory_path() /
                        ("corvane-demo-" + std::to_string(GetCurrentProcessId()))};
        for (const fs::path& path :
             {paths.program, paths.dotnet_root, paths.profiler, paths.library}) {
            if (!fs::exists(path)) {
                std::fprintf(stderr, "demo: %s does not exist\n", path.string().c_str());
                return 1;
            }
        }
        fs::create_directories(paths.home);
        const int result = run(paths);
        std::error_code ignored; // what stays behind is a small file in the temporary folder
        fs::remove_all(paths.home, ignored);
        return result;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "demo: %s\n", error.what());
        return 1;
    }
}
