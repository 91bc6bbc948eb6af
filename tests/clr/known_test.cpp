// What is known of well-known methods: spans of database commands and requests, and lines of a log
// that carry the ids of the span that they are written in.
#include "tests/support/otlp_file.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace corvane::testing {
namespace {

constexpr int kClient = 3;
constexpr int kError = 2;

std::string read_file(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

class Known : public EachRuntimeTest {
protected:
    // Runs the program with these settings beside its name.
    void record(const std::string& settings) {
        configure("<configuration><appSettings>" + settings +
                  "</appSettings><instrumentation><applications>"
                  "<application name='known.exe' corvane='Enabled'/>"
                  "</applications></instrumentation></configuration>");
        program = L"known";
        const std::filesystem::path traces = folder() / "traces.jsonl";
        const std::filesystem::path seen = folder() / "seen.txt";
        watch({.executable = L"known.exe",
               .arguments = {seen.wstring()},
               .environment = {{L"CORVANE_STRICT_IL", L"1"},
                               {L"CORVANE_OTLP_FILE", traces.wstring()},
                               {L"DOTNET_STARTUP_HOOKS", managed_library().wstring()}},
               .with_witness = false,
               .with_debugger = false,
               .exit_code = 42});
        spans = read_otlp_file(traces);
        exported = read_file(traces);
        lines = read_lines(seen);
    }

    const OtlpSpan& only(const std::string& name) const {
        const auto has_name = [&name](const OtlpSpan& span) { return span.name == name; };
        EXPECT_EQ(std::ranges::count_if(spans, has_name), 1) << name << " in\n" << exported;
        const auto found = std::ranges::find_if(spans, has_name);
        return found == spans.end() ? none_ : *found;
    }

    std::vector<OtlpSpan> spans;
    std::string exported;
    std::vector<std::string> lines;

private:
    static std::vector<std::string> read_lines(const std::filesystem::path& file) {
        std::ifstream stream(file, std::ios::binary);
        std::vector<std::string> lines;
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(line.substr(0, line.find_last_not_of('\r') + 1));
        }
        return lines;
    }

    OtlpSpan none_;
};
INSTANTIATE_TEST_SUITE_P(Runtimes, Known, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(Known, CallsAreDescribedWithoutTheirSecrets) {
    record("");
    const OtlpSpan& main = only("Program.Main");

    const OtlpSpan& command = only("SELECT Orders");
    EXPECT_EQ(command.kind, kClient);
    EXPECT_EQ(command.status, kError);
    EXPECT_EQ(command.trace, main.trace);
    EXPECT_EQ(command["db.system.name"], "microsoft.sql_server");
    EXPECT_EQ(command["db.query.text"], "SELECT * FROM Orders WHERE Card = ?");
    EXPECT_EQ(command["db.namespace"], "shop");
    EXPECT_EQ(command["server.address"], "db.example.com");
    EXPECT_EQ(command["server.port"], "1433");
    EXPECT_EQ(command["error.type"], "System.InvalidOperationException");

    std::vector<std::string> headers;
    std::vector<std::string> statuses;
    for (const OtlpSpan& span : spans) {
        if (span["code.function.name"] == "System.Net.HttpWebRequest.GetResponse") {
            EXPECT_EQ(span.name, "GET");
            EXPECT_EQ(span.kind, kClient);
            EXPECT_EQ(span.trace, main.trace);
            EXPECT_EQ(span["server.address"], "127.0.0.1");
            EXPECT_EQ(span["url.full"],
                      "http://127.0.0.1:" + span["server.port"] + "/page?token=***");
            statuses.push_back(span["http.response.status_code"] + " " + span["error.type"]);
            headers.push_back("traceparent: 00-" + span.trace + "-" + span.id + "-01");
        }
    }
    std::ranges::sort(statuses);
    EXPECT_EQ(statuses, std::vector<std::string>({"200 ", "404 404"}));
    ASSERT_EQ(lines.size(), 8u);
    EXPECT_THAT(std::vector<std::string>({lines[6], lines[7]}),
                ::testing::UnorderedElementsAreArray(headers));

    EXPECT_EQ(lines[0], "ordered");
    for (std::size_t line = 1; line < 4; ++line) {
        EXPECT_EQ(lines[line].find(main.trace), std::string::npos) << lines[line];
    }
    EXPECT_EQ(lines[4], "INFO - ordered");
    EXPECT_EQ(lines[5], "/");
    EXPECT_EQ(exported.find("hunter2"), std::string::npos);
}

TEST_P(Known, LinesOfALogCarryIds) {
    record("<add key='InsertLogTraceIdIntoLogs' value='Enabled'/>"
           "<add key='AddAttributeLogTraceId' value='Enabled'/>");
    const OtlpSpan& main = only("Program.Main");
    ASSERT_EQ(lines.size(), 8u);
    EXPECT_EQ(lines[0], "ordered " + main.trace);
    EXPECT_THAT(lines[1], ::testing::HasSubstr("\"TraceId\":\"" + main.trace + "\",\"SpanId\":\"" +
                                               main.id + "\""));
    for (std::size_t line = 2; line < 4; ++line) {
        EXPECT_THAT(lines[line], ::testing::HasSubstr("\"@tr\":\"" + main.trace + "\",\"@sp\":\"" +
                                                      main.id + "\""));
    }
    EXPECT_EQ(lines[4], main.trace + " INFO - ordered");
    EXPECT_EQ(lines[5], main.trace + "/" + main.id);
    for (const OtlpSpan& span : spans) {
        const std::string method = span["code.function.name"];
        EXPECT_FALSE(method.starts_with("Serilog.") || method.starts_with("log4net.")) << method;
    }
}

} // namespace
} // namespace corvane::testing
