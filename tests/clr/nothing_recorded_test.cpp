// What a program says at its end that was to be recorded, and was not.
#include "tests/support/runtime_test.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;

std::string text_of(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

class NothingRecorded : public EachRuntimeTest {
protected:
    fs::path calls() const { return folder() / "calls.txt"; }

    // The program is to be recorded into a file that is there already.
    void watch_with(const std::wstring& name, const std::vector<std::wstring>& arguments,
                    const std::wstring& variable, const std::string& remark,
                    const Environment& environment = {}) {
        write_file(calls(), "another one's");
        Launch launch = launch_of(name, arguments);
        launch.environment = environment;
        launch.environment[variable] = calls().wstring();
        launch.environment[L"DOTNET_STARTUP_HOOKS"] = managed_library().wstring();
        launch.remark = remark;
        watch(launch);
    }

    // The program is to be sampled.
    Launch sampled(const std::wstring& interval) {
        Launch launch = launch_of(L"small", {L"quiet"});
        launch.environment = {{L"CORVANE_SAMPLE", samples().wstring()},
                              {L"CORVANE_SAMPLE_INTERVAL_MS", interval},
                              {L"DOTNET_STARTUP_HOOKS", managed_library().wstring()}};
        return launch;
    }

    fs::path samples() const { return folder() / "samples"; }

    void configure_for(const std::string& program_name) const {
        configure("<configuration><instrumentation><applications><application name='" +
                  program_name +
                  "' corvane='Enabled'/></applications></instrumentation></configuration>");
    }

    // What is said of a program that agent.config does not enable.
    std::string not_listed(const std::string& program_name) const {
        return "CorvaneProfiler.dll is not in this process: it left because " +
               (home / "agent.config").string() + " does not enable " + program_name +
               ", or it could not be loaded. The file needs <application name=\"" + program_name +
               "\" corvane=\"Enabled\"/> in configuration/instrumentation/applications.\r\n";
    }

private:
    Launch launch_of(const std::wstring& name, const std::vector<std::wstring>& arguments) {
        program = name;
        return {.executable = name + L".exe",
                .arguments = arguments,
                .with_witness = false,
                .with_debugger = false,
                .exit_code = 42};
    }
};
INSTANTIATE_TEST_SUITE_P(Runtimes, NothingRecorded, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(NothingRecorded, OfAProgramThatIsNotListed) {
    configure_for("another.exe");
    const std::string why = "kite.managed: nothing was recorded: " + not_listed("padded.exe");
    for (const wchar_t* const variable : {L"CORVANE_CALL_TREE", L"CORVANE_SUMMARY"}) {
        watch_with(L"padded", {}, variable, why);
        EXPECT_EQ(text_of(calls()), "another one's");
    }
}

TEST_P(NothingRecorded, OfAProgramWithoutAConfiguration) {
    watch_with(L"small", {L"quiet"}, L"CORVANE_CALL_TREE",
               "kite.managed: nothing was recorded: CorvaneProfiler.dll is not in this process: it "
               "left because there is no " +
                   (home / "agent.config").string() + ". Write it, and list small.exe in it.\r\n");
    EXPECT_EQ(text_of(calls()), "another one's");
}

// The entry point of a program with top-level statements is no "Main".
TEST_P(NothingRecorded, OfAProgramOfWhichNoMethodIsChosen) {
    configure_for("small.exe");
    const std::string why =
        "nothing was recorded: no method was chosen. Methods are chosen for their names, their "
        "trace attribute or CORVANE_METHODS, when they are compiled. Without CORVANE_STRICT_IL=1 a "
        "method that is inlined or precompiled is not seen.\r\n";
    watch_with(L"small", {L"quiet"}, L"CORVANE_CALL_TREE", "kite.managed: " + why);
    EXPECT_EQ(text_of(calls()), "0 calls, 0 threads, 0 dropped\r\n" + why);
}

TEST_P(NothingRecorded, OfAProgramOfWhichAllChosenMethodsAreLeft) {
    configure_for("small.exe");
    const std::string why =
        "nothing was recorded: no method was instrumented. Chosen methods that were left "
        "unchanged: 3, 2 of them for this reason: it has generic types. The profiler's log "
        "(CORVANE_LOG_FILE) names them.\r\n";
    watch_with(L"small", {L"refused"}, L"CORVANE_CALL_TREE", "kite.managed: " + why,
               {{L"CORVANE_METHODS", L"Refused.*"}});
    EXPECT_EQ(text_of(calls()), "0 calls, 0 threads, 0 dropped\r\n" + why);
}

TEST_P(NothingRecorded, OfAProgramThatIsNotListedAndWasToBeSampled) {
    configure_for("another.exe");
    Launch launch = sampled(L"1");
    launch.opening = "kite.managed: no samples are taken: " + not_listed("small.exe");
    watch(launch);
    EXPECT_FALSE(fs::exists(samples()));
}

TEST_P(NothingRecorded, OfAProgramThatEndsBeforeItsFirstSample) {
    configure_for("small.exe");
    const std::string why = "no managed code was sampled: sampling ended before the first snapshot";
    Launch launch = sampled(L"60000");
    launch.remark = "kite.managed: " + why + "\r\n";
    watch(launch);
    int files = 0;
    for (const auto& entry : fs::directory_iterator(samples())) {
        ++files;
        const bool says_why = text_of(entry.path()).find(why) != std::string::npos;
        const bool has_words =
            entry.path().extension() != ".folded" && entry.path().extension() != ".gz";
        EXPECT_EQ(says_why, has_words) << entry.path();
    }
    EXPECT_EQ(files, 4);
}

} // namespace
} // namespace corvane::testing
