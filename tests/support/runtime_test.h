// RuntimeTest: runs the watched program in one of the real runtimes, plain and under the profiler.
// Every test has a folder of its own, with a copy of the program and the agent's home, which goes
// with the test. The runtimes are found through CORVANE_DOTNET_ROOTS, which holds a DOTNET_ROOT for
// each, named after its major version.
#pragma once

#include <gtest/gtest.h>

#include <windows.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace corvane::testing {

using Lines = std::vector<std::wstring>;
using Environment = std::map<std::wstring, std::optional<std::wstring>>;

inline constexpr int kRuntimes[] = {8, 9, 10};
inline constexpr DWORD kDefaultEvents = 0x10020224;

// Beside this program.
std::filesystem::path built_file(const std::wstring& name);

// What a program finds the managed library by.
std::filesystem::path managed_library();

// A folder that nobody else uses, removed with all that is in it.
class OwnFolder {
public:
    OwnFolder();
    OwnFolder(const OwnFolder&) = delete;
    OwnFolder& operator=(const OwnFolder&) = delete;
    ~OwnFolder();

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

void write_file(const std::filesystem::path& file, const std::string& bytes);

// What the log says of each chosen method, behind its name: the programs that tests of everything
// but instrumentation run have no managed library.
inline constexpr const wchar_t* kLeftWithoutLibrary =
    L" : Left as it is: kite.managed is not loaded; name its file in DOTNET_STARTUP_HOOKS";

// How the program is started.
struct Launch {
    std::wstring executable = L"program.exe"; // the name that the program is given
    std::vector<std::wstring> arguments = {};
    Environment environment = {}; // added to what the test itself sets
    bool names_library = true;    // by path; else the runtime asks the registry
    bool with_witness = true;     // between the runtime and the profiler
    std::wstring witness = L"witness.dll";
    bool with_debugger = true; // else there is no log, which is quicker by far
    bool raises_alike = false; // a debugger hears of the same exceptions in both runs
    std::chrono::seconds timeout = std::chrono::minutes(5);
    DWORD exit_code = 0;      // the one that it must have, plain and profiled
    std::string opening = {}; // what the profiled run writes before all that the plain one does
    std::string remark = {};  // and behind it
};

// What a run under the profiler showed.
struct Watched {
    Lines log;                      // the profiler's lines, without the thread's id and its blank
    std::optional<HRESULT> started; // what Initialize returned
    std::optional<DWORD> events;    // the mask that the runtime then had
    int module_loads = 0;           // callbacks delivered until the runtime shut the profiler down
    int failed_module_loads = 0;
    int compilations = 0;
    bool shut_down = false;
};

class RuntimeTest : public ::testing::Test {
    OwnFolder folder_;

protected:
    // Skips the test where there is no such runtime.
    void use_runtime(int major);

    const std::filesystem::path& folder() const { return folder_.path(); }

    // The folder that the agent's variable names; made, with this file in it, by `configure`.
    std::filesystem::path home = folder_.path() / "home";
    void configure(const std::string& agent_config) const;

    // What the agent's variable says, `home` unless the test chose something else.
    std::optional<std::wstring> home_variable = home.wstring();

    // The program that is watched: a folder beside the tests' own, named like the program in it.
    std::wstring program = L"program";

    // What a program finds the runtime by, without what an outer shell may have set for programs of
    // its own.
    Environment clean_environment() const;

    // The copy of it that the test runs, for tests that change what lies there.
    std::filesystem::path program_folder() const;

    // The library that is tested.
    std::filesystem::path library = built_file(L"CorvaneProfiler.dll");

    // Runs the program under the profiler, and plain, and expects the same output and exit code.
    Watched watch(const Launch& launch = {});

    // The log of a start-up that the gate ends; `messages` are the gate's.
    static Lines refused_log(const Lines& messages = {});

    // The log of a whole start-up: messages of the gate, then of the switches. No list of excluded
    // scopes stands beside the library, unless a test puts one there. The program's entry point is
    // the first method that is chosen.
    Lines traced_log(const Lines& messages = {}, const Lines& switch_messages = {}) const;

    // Expects the two outcomes that a start-up can have.
    static void expect_refused(const Watched& run, const Lines& log);
    static void expect_traced(const Watched& run, const Lines& log, DWORD events = kDefaultEvents);

private:
    struct Run {
        DWORD exit_code = 0;
        std::string output;
        Lines debug_output;
        Lines raised; // managed exceptions, as a debugger hears of them
    };
    Run run(const Launch& launch, Environment environment);
    const Run& plain_run(const Launch& launch);

    int major_ = 0;
};

// A test that every runtime runs.
class EachRuntimeTest : public RuntimeTest, public ::testing::WithParamInterface<int> {
protected:
    void SetUp() override { use_runtime(GetParam()); }
};

std::string runtime_name(const ::testing::TestParamInfo<int>& info);

// What the rows of a table of tests begin with.
struct NamedRow {
    const char* name;
};
inline std::ostream& operator<<(std::ostream& stream, const NamedRow& row) {
    return stream << row.name;
}

// A test that every runtime runs for every row of a table.
template <class Row>
class EachRuntimeRowTest : public RuntimeTest,
                           public ::testing::WithParamInterface<std::tuple<int, Row>> {
protected:
    void SetUp() override { use_runtime(std::get<0>(this->GetParam())); }
    const Row& row() const { return std::get<1>(this->GetParam()); }
};

template <class Row>
std::string row_name(const ::testing::TestParamInfo<std::tuple<int, Row>>& info) {
    return "Net" + std::to_string(std::get<0>(info.param)) + "_" + std::get<1>(info.param).name;
}

} // namespace corvane::testing
