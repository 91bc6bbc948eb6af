// Sampling in a real runtime: a program takes snapshots of its own threads through the exports.
// What it saw it prints, without what differs from run to run; that goes to the standard error. A
// program that hangs is ended and fails its test: a thread that stays suspended, or a lock that is
// taken while another one is, shows as that.
#include "tests/support/debuggee.h"
#include "tests/support/runtime_test.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;

constexpr DWORD kExitCode = 3;

// Snapshots of the tests that are after something rare, unless the environment says how many.
int snapshots(int usual) {
    const char* const count = std::getenv("CORVANE_SNAPSHOTS");
    return count != nullptr ? std::atoi(count) : usual;
}

class Sampling : public EachRuntimeTest {
protected:
    void SetUp() override {
        EachRuntimeTest::SetUp();
        configure("<configuration><instrumentation><applications><application name='sampled.exe' "
                  "corvane='Enabled'/></applications></instrumentation></configuration>");
    }

    // Else the program attaches the profiler to itself.
    bool is_there_from_the_start = true;

    // The thread that compiles hot methods again comes and goes, with a megabyte of its own.
    bool compiles_again = true;

    // Runs the program, with the number of snapshots that it is to take, and expects that it prints
    // this behind the runtime's version.
    void expect_output(const std::wstring& what, int count, const std::string& expected) const {
        // Far more than a snapshot takes on a busy machine.
        const std::chrono::milliseconds timeout(90'000 + 30 * count);
        const fs::path dotnet_root =
            fs::absolute(fs::path(_wgetenv(L"CORVANE_DOTNET_ROOTS")) / std::to_string(GetParam()))
                .make_preferred();
        DebuggeeOptions options;
        options.program = built_file(L"managed").append("sampled").append("sampled.exe").wstring();
        options.arguments = {what, std::to_wstring(count)};
        options.environment = {{L"DOTNET_ROOT", dotnet_root.wstring()},
                               {L"DOTNET_ROOT_X64", std::nullopt},
                               {L"DOTNET_MULTILEVEL_LOOKUP", L"0"},
                               {L"DOTNET_TieredCompilation", compiles_again ? L"1" : L"0"},
                               {L"CORECLR_ENABLE_PROFILING", is_there_from_the_start ? L"1" : L"0"},
                               {L"CORECLR_PROFILER", L"{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}"},
                               {L"CORECLR_PROFILER_PATH", library.wstring()},
                               {L"CORECLR_PROFILER_PATH_64", std::nullopt},
                               {L"CORVANE_HOME_APM_DOTNET", home.wstring()}};
        options.output_file = (folder() / "output.txt").wstring();
        options.passes_errors = true;
        options.timeout = timeout;
        const DebuggeeResult result = run_debuggee(options);
        EXPECT_FALSE(result.timed_out) << "it hung:\n" << result.stacks;
        EXPECT_EQ(result.exit_code, kExitCode);
        std::ifstream stream(fs::path(options.output_file), std::ios::binary);
        const std::string output(std::istreambuf_iterator<char>(stream), {});
        const std::size_t line_end = output.find('\n');
        EXPECT_TRUE(output.starts_with("runtime " + std::to_string(GetParam()) + '.'));
        std::string rest = line_end == std::string::npos ? "" : output.substr(line_end + 1);
        std::erase(rest, '\r');
        EXPECT_EQ(rest, expected);
    }
};
INSTANTIATE_TEST_SUITE_P(Runtimes, Sampling, ::testing::ValuesIn(kRuntimes), runtime_name);

// Frame for frame, innermost first; threads that stay where they are in fifty snapshots, which all
// have to agree.
TEST_P(Sampling, ShowsKnownCallChains) {
    const bool is_10 = GetParam() == 10;
    // What the runtime's own code is on the way to and from the program's differs by version.
    const std::string start = is_10 ? " < System.Threading.Thread.StartCallback\n" : "\n";
    const std::string lock =
        is_10 ? "System.Threading.Monitor.Enter_Slowpath < System.Threading.Monitor.Enter < " : "";
    const std::string suspended = "suspended 0\n";
    expect_output(
        L"chains", 0,
        "spin: Spinning.Spin < Chains.Inner < Chains.Outer < Target.Run" + start + suspended +
            "sleep: System.Threading.Thread.Sleep < Chains.Sleeping < Target.Run" + start +
            suspended + "native: Chains.InNativeCode < Target.Run" + start + suspended +
            "lock: " + lock + "Chains.Locked < Target.Run" + start + suspended +
            "recursion: Spinning.Spin < Chains.Descend x10000 < Chains.Recursing < Target.Run" +
            start + suspended +
            "generic: Spinning.Spin < Ordered`1.Spin < Generic`1.Sorted < Nested`1.Leave < "
            "Generic`1.Pass < Generic`1.Enter < Target.Run" +
            start + suspended +
            "throw: Chains.Throw x5 < Chains.Catch < Chains.Throwing < Target.Run\n" + suspended +
            "self: Sampler.Take < Chains.PrintAll < Program.Main\n"
            "ended: status 0, no frames\n"
            "unknown: status 2, no frames\n"
            "no function: ?.?\n"
            "no functions: 0\n");
}

// A caller in C# catches them.
TEST_P(Sampling, RaisesErrorsThatAManagedCallerSurvives) {
    expect_output(L"failures", 0,
                  "negative count: SEHException\nno array: SEHException\n"
                  "no thread: SEHException\nno thread for names: SEHException\n"
                  "it goes on\nby the library: it goes on\nsuspended 0\n");
}

TEST_P(Sampling, HasNoNameForANumberThatIsNoFunction) {
    std::string names;
    for (int i = 0; i < 12; ++i) {
        names += "?.?\n";
    }
    expect_output(L"no functions", 0, names);
}

// What the runtime has made for a type goes with the type's assembly.
TEST_P(Sampling, HasNoNameForAFunctionThatIsUnloaded) {
    const std::string caller = " < InPlugin.Run < Target.Run\n";
    const std::string names =
        "Plugin.Spin < Plugin.Each < System.Collections.Generic.List`1.ForEach < Plugin.Hold" +
        caller;
    expect_output(L"unloaded", 0,
                  "loaded: " + names + "unloaded: ?.? < ?.? < ?.? < ?.?" + caller +
                      "loaded again: " + names);
}

TEST_P(Sampling, LeavesAProgramThatUnloadsAsItIs) {
    expect_output(L"unloading", snapshots(300), "unloading: sampled\n");
}

// --- Attached to a program that runs

TEST_P(Sampling, ServesAProgramThatItIsAttachedTo) {
    is_there_from_the_start = false;
    const std::string busy = "Attaching.Busy < Target.Run\nsuspended 0\n";
    expect_output(L"attach", 0,
                  "attached: 00000000\nbefore: " + busy +
                      "asleep: Attaching.Patient < Target.Run\nsuspended 0\n"
                      "behind: " +
                      busy +
                      "self: Sampler.Take < Attaching.Sampled < Attaching.SampleAfterwards < "
                      "Program.Main\n"
                      "attached again: 8013136A\nbefore: " +
                      busy +
                      "by the library: Attaching.Busy, Attaching.Patient, "
                      "Attaching.SampleAfterwards, Attaching.SampledByLibrary\n"
                      "ended: status 0, no frames\n");
}

TEST_P(Sampling, LeavesAProgramAloneThatItIsAttachedToButNotToProfile) {
    is_there_from_the_start = false;
    configure("<configuration><instrumentation><applications/></instrumentation></configuration>");
    const std::string nothing = "status 2, no frames\n";
    expect_output(L"attach", 0,
                  "attached: 00000000\nbefore: " + nothing + "suspended 0\nasleep: " + nothing +
                      "suspended 0\nbehind: " + nothing + "suspended 0\nself: " + nothing +
                      "attached again: 8013136A\nbefore: " + nothing + "suspended 0\n" +
                      "by the library: \nended: " + nothing);
}

// --- Bad moments

TEST_P(Sampling, LeavesThreadsThatHardlyLiveAlone) {
    expect_output(L"short-lived", snapshots(4000), "short-lived: sampled\n");
}

// Until after their end.
TEST_P(Sampling, LeavesThreadsThatComeAndGoAlone) {
    expect_output(L"threads", 100, "threads: walked\n");
}

TEST_P(Sampling, ServesTwoSamplersOfEachOther) {
    expect_output(L"samplers", 500,
                  "one by one: walked\nother by one: walked\nbusy by one: walked\n"
                  "one by other: walked\nother by other: walked\nbusy by other: walked\n");
}

TEST_P(Sampling, DoesNotHangOnALockOfTheHeap) {
    expect_output(L"allocating", snapshots(1000),
                  "allocating: walked\nallocating natively: walked\n");
}

TEST_P(Sampling, LivesWithTheCollector) {
    expect_output(L"collecting", 50,
                  "allocating: walked\nbusy: walked\ncollecting: walked\nsampling: walked\n");
}

TEST_P(Sampling, LeavesTheStartOfAProgramAsItIs) {
    expect_output(L"start", 0, "{\"numbers\":[1,2,3]}\nshot-snap\n144\n3628800\nstart: sampled\n");
}

TEST_P(Sampling, LeavesTheEndOfAProgramAsItIs) {
    for (int i = 0; i < 10; ++i) {
        expect_output(L"end", 0, "end: sampled\n");
    }
}

TEST_P(Sampling, LeavesNothingBehind) {
    compiles_again = false;
    expect_output(L"endurance", snapshots(10'000),
                  "handles: same\nmemory: same\nendurance: walked\n");
}

} // namespace
} // namespace corvane::testing
