#include "tests/support/runtime_test.h"

#include "tests/support/debuggee.h"

#include <cwchar>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <tuple>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;

constexpr DWORD kManagedException = 0xE0434352;
constexpr wchar_t kClassId[] = L"{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}";

// A path that the build machine wrote; what runs Windows programs there shows its files as drive Z.
fs::path native_path(std::wstring path) {
    if (path.starts_with(L'/')) {
        path.insert(0, L"Z:");
    }
    return fs::path(path).make_preferred();
}

fs::path own_folder() {
    static int number = 0;
    const std::wstring name = L"corvane clr_tests " + std::to_wstring(GetCurrentProcessId());
    return fs::temp_directory_path() / (name + L' ' + std::to_wstring(++number));
}

std::string read_file(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// Without what an outer shell may have set for programs of its own.
Environment base_environment(const fs::path& dotnet_root) {
    Environment environment = {{L"DOTNET_ROOT", dotnet_root.wstring()},
                               {L"DOTNET_MULTILEVEL_LOOKUP", L"0"}};
    for (const wchar_t* name :
         {L"DOTNET_ROOT_X64", L"CORECLR_ENABLE_PROFILING", L"CORECLR_PROFILER",
          L"CORECLR_PROFILER_PATH", L"CORECLR_PROFILER_PATH_64", L"CORVANE_HOME_APM_DOTNET",
          L"CORVANE_WITNESS_TARGET", L"CORVANE_LOG_FILE", L"CORVANE_LOG_LEVEL",
          L"CORVANE_LOG_LIMIT_MB", L"APP_TYPE"}) {
        environment[name] = std::nullopt;
    }
    return environment;
}

void read_witness_line(const std::wstring& line, Watched& watched) {
    unsigned long value = 0;
    if (std::swscanf(line.c_str(), L"witness: Initialize=0x%lX", &value) == 1) {
        watched.started = static_cast<HRESULT>(value);
    } else if (std::swscanf(line.c_str(), L"witness: GetEventMask=0x%lX", &value) == 1) {
        watched.events = value;
    } else if (std::swscanf(line.c_str(), L"witness: ModuleLoadFinished calls=%d failed=%d",
                            &watched.module_loads, &watched.failed_module_loads) == 2) {
        watched.shut_down = true;
    } else if (std::swscanf(line.c_str(), L"witness: JITCompilationStarted calls=%d",
                            &watched.compilations) != 1) {
        ADD_FAILURE() << line;
    }
}

// Of all that the process wrote to the debugger output, the lines of the profiler and the witness.
Watched read_debug_output(const Lines& lines) {
    Watched watched;
    for (const std::wstring& line : lines) {
        const std::size_t blank = line.find_first_not_of(L"0123456789");
        if (line.starts_with(L"witness: ")) {
            read_witness_line(line, watched);
        } else if (blank != 0 && blank != line.npos && line[blank] == L' ') {
            watched.log.push_back(line.substr(blank + 1));
        }
    }
    return watched;
}

Lines joined(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

} // namespace

fs::path built_file(const std::wstring& name) {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return fs::path(path).parent_path() / name;
}

fs::path managed_library() {
    return built_file(L"managed").append(L"kite").append(L"kite.managed.dll");
}

OwnFolder::OwnFolder() : path_(own_folder()) {
    fs::create_directory(path_);
}

OwnFolder::~OwnFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

void write_file(const fs::path& file, const std::string& bytes) {
    std::ofstream stream(file, std::ios::binary);
    stream << bytes;
    if (!stream.flush()) {
        throw std::runtime_error("cannot write " + file.string());
    }
}

void RuntimeTest::use_runtime(int major) {
    major_ = major;
    const wchar_t* const roots = _wgetenv(L"CORVANE_DOTNET_ROOTS");
    if (roots == nullptr || !fs::exists(native_path(roots) / std::to_wstring(major))) {
        GTEST_SKIP() << "CORVANE_DOTNET_ROOTS names no folder with runtime " << major;
    }
}

void RuntimeTest::configure(const std::string& agent_config) const {
    fs::create_directories(home);
    write_file(home / "agent.config", agent_config);
}

namespace {

fs::path built_program(const std::wstring& program) {
    return built_file(fs::path(CORVANE_PROGRAMS_FOLDER).make_preferred()) / program;
}

} // namespace

fs::path RuntimeTest::program_folder() const {
    const fs::path copy = folder() / "program";
    if (fs::create_directory(copy)) {
        for (const fs::directory_entry& file : fs::directory_iterator(built_program(program))) {
            if (file.path().extension() == L".dll" || file.path().extension() == L".json") {
                fs::copy_file(file.path(), copy / file.path().filename());
            }
        }
    }
    return copy;
}

Environment RuntimeTest::clean_environment() const {
    return base_environment(native_path(_wgetenv(L"CORVANE_DOTNET_ROOTS")) /
                            std::to_wstring(major_));
}

RuntimeTest::Run RuntimeTest::run(const Launch& launch, Environment environment) {
    const fs::path built = built_program(program);
    const fs::path copy = program_folder();
    const fs::path executable = copy / launch.executable;
    if (!fs::exists(executable)) {
        const fs::path own = built / launch.executable; // of one of several programs in the folder
        fs::copy_file(fs::exists(own) ? own : built / (program + L".exe"), executable);
    }
    environment.merge(clean_environment());

    Run run;
    DebuggeeOptions options;
    options.program = executable.wstring();
    options.arguments = launch.arguments;
    options.environment = std::move(environment);
    options.directory = copy.wstring();
    options.output_file = (folder() / "output.txt").wstring();
    options.timeout = launch.timeout;
    if (launch.with_debugger) {
        options.on_debug_output = [&run](const std::wstring& line) {
            run.debug_output.push_back(line);
        };
        options.on_exception = [&run](const EXCEPTION_DEBUG_INFO& info) {
            if (info.ExceptionRecord.ExceptionCode == kManagedException) {
                run.raised.push_back(info.dwFirstChance != 0 ? L"first chance" : L"second chance");
            }
        };
    }
    const DebuggeeResult result = run_debuggee(options);
    if (result.timed_out) {
        const bool is_profiled = options.environment[L"CORECLR_ENABLE_PROFILING"].has_value();
        throw std::runtime_error(std::string("the watched program did not end ") +
                                 (is_profiled ? "under the profiler" : "by itself") +
                                 ", and wrote:\n" + read_file(options.output_file) + result.stacks);
    }
    run.exit_code = result.exit_code;
    run.output = read_file(options.output_file);
    return run;
}

// One for all tests that start the program alike: nothing that a test varies besides reaches it.
const RuntimeTest::Run& RuntimeTest::plain_run(const Launch& launch) {
    static std::map<std::tuple<int, std::wstring, std::wstring, std::vector<std::wstring>, bool>,
                    Run>
        runs;
    const auto key =
        std::tuple(major_, program, launch.executable, launch.arguments, launch.with_debugger);
    const auto found = runs.find(key);
    if (found != runs.end()) {
        return found->second;
    }
    const Run& plain = runs[key] = run(launch, {});
    EXPECT_EQ(plain.exit_code, launch.exit_code);
    EXPECT_TRUE(plain.output.starts_with("runtime " + std::to_string(major_) + '.'))
        << plain.output;
    EXPECT_EQ(read_debug_output(plain.debug_output).log, Lines());
    return plain;
}

Watched RuntimeTest::watch(const Launch& launch) {
    const fs::path loaded = launch.with_witness ? built_file(launch.witness) : library;
    Environment environment = launch.environment;
    environment[L"CORECLR_ENABLE_PROFILING"] = L"1";
    environment[L"CORECLR_PROFILER"] = kClassId;
    environment[L"CORVANE_HOME_APM_DOTNET"] = home_variable;
    environment[L"CORVANE_WITNESS_TARGET"] = library.wstring();
    environment[L"CORVANE_END_SECONDS"] = L"120"; // on a busy machine, too
    if (launch.names_library) {
        environment[L"CORECLR_PROFILER_PATH"] = loaded.wstring();
    }
    const Run& plain = plain_run(launch);
    const Run watched = run(launch, environment);
    EXPECT_EQ(watched.exit_code, launch.exit_code);
    EXPECT_EQ(watched.output, launch.opening + plain.output + launch.remark);
    if (launch.raises_alike) {
        EXPECT_NE(plain.raised, Lines());
        EXPECT_EQ(watched.raised, plain.raised);
    }
    return read_debug_output(watched.debug_output);
}

Lines RuntimeTest::refused_log(const Lines& messages) {
    return joined(
        {{L"CClrProfiler::Initialize(): Invoked", L"CClrProfiler::ShouldTrace(): called."},
         messages});
}

Lines RuntimeTest::traced_log(const Lines& messages, const Lines& switch_messages) const {
    return joined({refused_log(messages),
                   {L"CClrProfiler::Initialize(): after should trace"},
                   switch_messages,
                   {L"Failed to read list of excluded scopes from " +
                        (library.parent_path() / "do_not_instrument.txt").wstring(),
                    L"===================Inserting prologue for: Program.Main",
                    L'[' + program + L"]Program:Main()" + kLeftWithoutLibrary}});
}

void RuntimeTest::expect_refused(const Watched& run, const Lines& log) {
    EXPECT_EQ(run.log, log);
    EXPECT_EQ(run.started, static_cast<HRESULT>(0x80131375));
    EXPECT_EQ(run.events, 0U);
    EXPECT_FALSE(run.shut_down); // the runtime has let go of it long before
}

void RuntimeTest::expect_traced(const Watched& run, const Lines& log, DWORD events) {
    EXPECT_EQ(run.log, log);
    EXPECT_EQ(run.started, S_OK);
    EXPECT_EQ(run.events, events);
    EXPECT_TRUE(run.shut_down);
    EXPECT_GT(run.module_loads, 0);
    EXPECT_EQ(run.failed_module_loads, 0);
    EXPECT_GT(run.compilations, 0);
}

std::string runtime_name(const ::testing::TestParamInfo<int>& info) {
    return "Net" + std::to_string(info.param);
}

} // namespace corvane::testing
