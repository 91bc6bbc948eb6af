// Ends of a process: whatever ends it, the program ends as it does without the profiler, and all
// that was recorded is in every file.
#include "tests/support/otlp_file.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace corvane::testing {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

std::string read_file(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

struct End : NamedRow {
    const wchar_t* argument; // a number is the console's
    DWORD exit_code;
    bool leaves_main_open;
};

constexpr End kEnds[] = {
    {{"Return"}, L"return", 42, false},
    {{"Exit"}, L"exit", 42, true},
    {{"Exception"}, L"throw", 0xE0434352, false},
    {{"CtrlC"}, L"0", 0xC000013A, true},
    {{"CtrlBreak"}, L"1", 0xC000013A, true},
    {{"ClosedConsole"}, L"2", 0, true},
    {{"Shutdown"}, L"6", 0, true},
};

class Ends : public EachRuntimeRowTest<End> {};
INSTANTIATE_TEST_SUITE_P(Rows, Ends,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kEnds)),
                         row_name<End>);

TEST_P(Ends, LoseNothing) {
    configure("<configuration><instrumentation><applications>"
              "<application name='ends.exe' corvane='Enabled'/>"
              "</applications></instrumentation></configuration>");
    program = L"ends";
    const std::filesystem::path spans = folder() / "spans.jsonl";
    const std::filesystem::path trace = folder() / "trace.json";
    const std::filesystem::path tree = folder() / "calls.txt";
    const std::filesystem::path summary = folder() / "summary.txt";
    watch({.executable = L"ends.exe",
           .arguments = {row().argument},
           .environment = {{L"CORVANE_STRICT_IL", L"1"},
                           {L"CORVANE_OTLP_FILE", spans.wstring()},
                           {L"CORVANE_TRACE_FILE", trace.wstring()},
                           {L"CORVANE_CALL_TREE", tree.wstring()},
                           {L"CORVANE_SUMMARY", summary.wstring()},
                           {L"DOTNET_STARTUP_HOOKS", managed_library().wstring()}},
           .with_witness = false,
           .with_debugger = false,
           .exit_code = row().exit_code});

    const std::vector<OtlpSpan> written = read_otlp_file(spans);
    ASSERT_EQ(written.size(), 2U);
    EXPECT_EQ(written[0].name, "Program.Work");
    EXPECT_EQ(written[0]["corvane.unfinished"], "");
    EXPECT_EQ(written[1].name, "Program.Main");
    EXPECT_EQ(written[1]["corvane.unfinished"], row().leaves_main_open ? "true" : "");

    EXPECT_THAT(read_file(trace), EndsWith("]\n"));
    EXPECT_THAT(read_file(tree), HasSubstr("    Program.Work()  [")) << "in Main";
    EXPECT_THAT(read_file(tree), HasSubstr("2 calls, 1 threads, 0 dropped"));
    EXPECT_THAT(read_file(summary), HasSubstr("  Program.Work"));
}

} // namespace
} // namespace corvane::testing
