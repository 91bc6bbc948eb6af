// A web program of ASP.NET Core that calls itself by HttpClient, on every runtime: what it is
// asked, what it asks and its own methods are spans of one trace, each under the one that caused
// it.
#include "tests/support/otlp_file.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

std::string read_file(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

using Spans = std::map<std::string, OtlpSpan>; // by their ids

Spans read_spans(const fs::path& file) {
    Spans spans;
    for (const OtlpSpan& span : read_otlp_file(file)) {
        EXPECT_TRUE(spans.emplace(span.id, span).second) << span.name;
    }
    return spans;
}

// Who made it, or which method of the program it is of.
std::string what(const OtlpSpan& span) {
    return span.scope == "Corvane.Instrumentation" ? span.name : span.scope;
}

// What caused the span, innermost first, all of its trace.
std::vector<std::string> causes(const Spans& spans, const std::string& id) {
    std::vector<std::string> chain;
    const auto first = spans.find(id);
    for (auto span = first; span != spans.end(); span = spans.find(span->second.parent)) {
        EXPECT_EQ(span->second.trace, first->second.trace);
        chain.push_back(what(span->second));
    }
    return chain;
}

class Web : public EachRuntimeTest {
protected:
    void run(const std::wstring& values, const std::wstring& what = L"",
             const std::wstring& samples = L"", const std::wstring& strict = L"1") {
        program = L"web";
        configure("<configuration><instrumentation><applications>"
                  "<application name='web.exe' corvane='Enabled'/>"
                  "</applications></instrumentation></configuration>");
        watch({.executable = L"web.exe",
               .arguments = {(folder() / "seen.txt").wstring(), what},
               .environment = {{L"CORVANE_STRICT_IL", strict},
                               {L"DOTNET_STARTUP_HOOKS", managed_library().wstring()},
                               {L"CORVANE_OTLP_FILE", otlp().wstring()},
                               {L"CORVANE_TRACE_FILE", (folder() / "trace.json").wstring()},
                               {L"CORVANE_CALL_TREE", (folder() / "calls.txt").wstring()},
                               {L"CORVANE_SUMMARY", (folder() / "summary.txt").wstring()},
                               {L"CORVANE_SAMPLE", samples},
                               {L"CORVANE_VALUES", values}},
               .with_witness = false,
               .with_debugger = false,
               .timeout = std::chrono::minutes(10)});
    }
    fs::path otlp() const { return folder() / "spans.jsonl"; }
};
INSTANTIATE_TEST_SUITE_P(Runtimes, Web, ::testing::ValuesIn(kRuntimes), runtime_name);

TEST_P(Web, IsOneTraceFromRequestToInnerRequest) {
    run(L"none");
    const Spans spans = read_spans(otlp());
    std::istringstream seen(read_file(folder() / "seen.txt"));
    std::map<std::string, int> routes;
    for (std::string route, trace, id; seen >> route >> trace >> id;) {
        SCOPED_TRACE(route);
        ++routes[route];
        const auto span = spans.find(id);
        ASSERT_NE(span, spans.end());
        EXPECT_EQ(span->second.trace, trace);
        if (route == "inner") {
            EXPECT_THAT(causes(spans, id),
                        ElementsAre("Microsoft.AspNetCore", "System.Net.Http", "Shop.QuoteAsync",
                                    "Microsoft.AspNetCore", "System.Net.Http", "Program.<Main>$"));
        } else {
            EXPECT_THAT(causes(spans, id),
                        ElementsAre("Microsoft.AspNetCore", "System.Net.Http", "Program.<Main>$"));
        }
        EXPECT_EQ(span->second.status, route == "failing" ? 2 : 0);
    }
    EXPECT_EQ(routes, (std::map<std::string, int>{{"failing", 1}, {"inner", 8}, {"outer", 8}}));

    std::map<std::string, int> own;
    for (const auto& [id, span] : spans) {
        if (span.name.starts_with("Shop.")) {
            ++own[span.name];
            EXPECT_EQ(what(spans.at(span.parent)), "Microsoft.AspNetCore");
            EXPECT_EQ(span.status, span.name == "Shop.Fail" ? 2 : 0);
        }
    }
    EXPECT_EQ(own, (std::map<std::string, int>{
                       {"Shop.Fail", 1}, {"Shop.Price", 8}, {"Shop.QuoteAsync", 8}}));
}

// As in the default form, where top-level statements are not instrumented either.
TEST_P(Web, IsOneTraceWithoutAnyInstrumentedMethod) {
    run(L"none", L"plain", L"", L"0");
    const Spans spans = read_spans(otlp());
    std::istringstream seen(read_file(folder() / "seen.txt"));
    std::string route, trace, id;
    ASSERT_TRUE(seen >> route >> trace >> id);
    EXPECT_THAT(causes(spans, id), ElementsAre("Microsoft.AspNetCore", "System.Net.Http",
                                               "Microsoft.AspNetCore", "System.Net.Http"));
    EXPECT_EQ(spans.size(), 4U);
    EXPECT_EQ(spans.at(id).name, "GET /leaf");
    EXPECT_EQ(spans.at(id).trace, trace);
}

// Its waiting is on no thread. What runs is below the route, in every form of the results.
TEST_P(Web, ShowsWhatASlowEndPointDoes) {
    const fs::path samples = folder() / "samples";
    run(L"none", L"slow", samples.wstring());
    int hashing = 0;
    int all = 0;
    bool is_drawn = false;
    for (const fs::directory_entry& file : fs::directory_iterator(samples)) {
        const std::string text = read_file(file.path());
        if (file.path().extension() == ".svg") {
            is_drawn = text.find("<title>GET /slow\n") != std::string::npos &&
                       text.find("<title>Slow.Hash\n") != std::string::npos;
        } else if (file.path().extension() == ".folded") {
            std::istringstream stream(text);
            for (std::string line; std::getline(stream, line);) {
                const int count = std::stoi(line.substr(line.rfind(' ')));
                if (line.find(";(waiting) ") == std::string::npos) {
                    all += count;
                    const bool is_hashing = line.starts_with("[GET /slow];") &&
                                            line.find(";Slow.Hash") != std::string::npos;
                    hashing += is_hashing ? count : 0;
                }
            }
        }
    }
    EXPECT_TRUE(is_drawn);
    EXPECT_GT(2 * hashing, all) << hashing << " of " << all;
}

TEST_P(Web, WritesNoSecretOfAnUrl) {
    for (const wchar_t* values : {L"none", L"safe", L"all"}) {
        run(values);
        for (const char* file : {"spans.jsonl", "trace.json", "calls.txt", "summary.txt"}) {
            const std::string text = read_file(folder() / file);
            EXPECT_NE(text, "") << file;
            EXPECT_THAT(text, Not(HasSubstr("planted-secret"))) << file;
        }
    }
}

} // namespace
} // namespace corvane::testing
