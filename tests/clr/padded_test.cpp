// Methods of modules in which the references that injected code needs get low rows, at work: their
// signatures are padded in the default form, and the runtime has to bind them all the same.
#include "tests/support/call_tree.h"
#include "tests/support/runtime_test.h"

#include <gtest/gtest.h>

namespace corvane::testing {
namespace {

struct Form : NamedRow {
    const wchar_t* strict;
};

const Form kForms[] = {{{"Default"}, L"0"}, {{"Strict"}, L"1"}};

class Padded : public EachRuntimeRowTest<Form> {};
INSTANTIATE_TEST_SUITE_P(Forms, Padded,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kForms)),
                         row_name<Form>);

TEST_P(Padded, IsRecorded) {
    configure("<configuration><instrumentation><applications>"
              "<application name='padded.exe' corvane='Enabled'/>"
              "</applications></instrumentation></configuration>");
    program = L"padded";
    const std::filesystem::path tree = folder() / "calls.txt";
    watch({.executable = L"padded.exe",
           .environment = {{L"CORVANE_STRICT_IL", row().strict},
                           {L"CORVANE_CALL_TREE", tree.wstring()},
                           {L"CORVANE_VALUES", L"all"},
                           {L"DOTNET_STARTUP_HOOKS", managed_library().wstring()}},
           .with_witness = false,
           .with_debugger = false,
           .exit_code = 42});
    std::vector<std::string> expected = {"thread 1", "  Program.Main()"};
    for (int exception_row = 26; exception_row <= 31; ++exception_row) {
        const std::string text = std::to_string(exception_row);
        expected.push_back("    Padded.Text(text: \"" + text + "\") = \"" + text + '"');
        expected.push_back("    Padded.Fail(text: \"" + text +
                           "\") ! System.InvalidOperationException: " + text);
    }
    expected.emplace_back("13 calls, 1 threads, 0 dropped");
    EXPECT_EQ(read_call_lines(tree), expected);
}

} // namespace
} // namespace corvane::testing
