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
                    const std::wstring& variable, const std::string& remark) {
        write_file(calls(), "another one's");
        program = name;
        watch({.executable = name + L".exe",
               .arguments = arguments,
               .environment = {{variable, calls().wstring()},
                               {L"DOTNET_STARTUP_HOOKS", managed_library().wstring()}},
               .with_witness = false,
               .with_debugger = false,
               .exit_code = 42,
               .remark = remark});
    }

    void configure_for(const std::string& program_name) const {
        configure("<configuration><instrumentation><applications><application name='" +
                  program_name +
                  "' corvane='Enabled'/></applications></instrumentation></configuration>");
    }
};
INSTANTIATE_TEST_SUITE_P(Runtimes, NothingRecorded, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(NothingRecorded, OfAProgramThatIsNotListed) {
    configure_for("another.exe");
    const std::string why =
        "kite.managed: nothing was recorded: CorvaneProfiler.dll is not in this process although "
        "it was asked for, or is one that does not sample: it could not be loaded, or it left "
        "because agent.config does not enable padded.exe. Look whether CORECLR_PROFILER_PATH names "
        "the right file, and whether agent.config in the folder that CORVANE_HOME_APM_DOTNET names "
        "has <application name=\"padded.exe\" corvane=\"Enabled\"/>.\r\n";
    for (const wchar_t* const variable : {L"CORVANE_CALL_TREE", L"CORVANE_SUMMARY"}) {
        watch_with(L"padded", {}, variable, why);
        EXPECT_EQ(text_of(calls()), "another one's");
    }
}

// The entry point of a program with top-level statements is no "Main".
TEST_P(NothingRecorded, OfAProgramThatCallsNoInstrumentedMethod) {
    configure_for("small.exe");
    const std::string why =
        "nothing was recorded: no instrumented method was called. Methods are instrumented for "
        "their names, their trace attribute or CORVANE_METHODS; the profiler's log "
        "(CORVANE_LOG_FILE) names those that were left unchanged, and why.\r\n";
    watch_with(L"small", {L"quiet"}, L"CORVANE_CALL_TREE", "kite.managed: " + why);
    EXPECT_EQ(text_of(calls()), "0 calls, 0 threads, 0 dropped\r\n" + why);
}

} // namespace
} // namespace corvane::testing
