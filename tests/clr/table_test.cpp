// Methods that the built-in table names, at work: their results and exceptions reach the managed
// library as they reach the caller.
#include "tests/support/call_tree.h"
#include "tests/support/runtime_test.h"

#include <gtest/gtest.h>

namespace corvane::testing {
namespace {

using CallLines = std::vector<std::string>;

struct Program : NamedRow {
    const wchar_t* argument;
    CallLines calls;
};

const Program kPrograms[] = {
    {{"Database"},
     L"database",
     {"System.Data.SqlClient.SqlCommand.ExecuteReader() ! System.InvalidOperationException: "
      "ExecuteReader requires an open and available Connection. The connection's current state is "
      "closed.",
      "  System.Data.SqlClient.SqlCommand.ExecuteReader(behavior: Default) ! "
      "System.InvalidOperationException: ExecuteReader requires an open and available Connection. "
      "The connection's current state is closed."}},
    {{"Web"},
     L"web",
     {"System.Net.HttpWebRequest.GetResponse() = {System.Net.HttpWebResponse}",
      "System.Net.HttpWebRequest.GetResponse() ! System.Net.WebException: The remote server "
      "returned an error: (404) Not Found."}},
    {{"Generic"},
     L"generic",
     {"Corvane.Instrumentation.MethodArguments.InstrumentedMethod<T>(text: \"text\") = \"text of "
      "String\"",
      "Corvane.Instrumentation.MethodArguments.InstrumentedMethod<T>(text: \"more\") = \"more of "
      "Uri\""}},
};

class Table : public EachRuntimeRowTest<Program> {
protected:
    // What was recorded of the program, without times.
    CallLines record(const wchar_t* strict) {
        configure("<configuration><instrumentation><applications>"
                  "<application name='table.exe' corvane='Enabled'/>"
                  "</applications></instrumentation></configuration>");
        program = L"table";
        const std::filesystem::path tree = folder() / "calls.txt";
        watch({.executable = L"table.exe",
               .arguments = {row().argument},
               .environment = {{L"CORVANE_STRICT_IL", strict},
                               {L"CORVANE_CALL_TREE", tree.wstring()},
                               {L"CORVANE_VALUES", L"all"},
                               {L"DOTNET_STARTUP_HOOKS", managed_library().wstring()}},
               .with_witness = false,
               .with_debugger = false,
               .exit_code = 42});
        return read_call_lines(tree);
    }

    // The calls, as deep as they were, between the first line of a tree and its last.
    CallLines tree_of_calls(const std::string& outermost = "") const {
        CallLines lines = {"thread 1"};
        std::string indent = "  ";
        if (!outermost.empty()) {
            lines.push_back(indent + outermost);
            indent += "  ";
        }
        for (const std::string& call : row().calls) {
            lines.push_back(indent + call);
        }
        lines.push_back(std::to_string(lines.size() - 1) + " calls, 1 threads, 0 dropped");
        return lines;
    }
};
INSTANTIATE_TEST_SUITE_P(Programs, Table,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kPrograms)),
                         row_name<Program>);

// The program's module names no System.Int32, as which the result of Main would be boxed.
TEST_P(Table, IsRecordedByDefault) {
    EXPECT_EQ(record(L"0"), tree_of_calls());
}

TEST_P(Table, IsRecordedWithStrictIl) {
    EXPECT_EQ(record(L"1"), tree_of_calls("Program.Main(arguments: {System.String[]}) = 42"));
}

} // namespace
} // namespace corvane::testing
