// A program that has OpenTelemetry itself: its exporter gets the calls among the program's own
// activities, with and without a file of ours.
#include "tests/support/otlp_file.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace corvane::testing {
namespace {

using ::testing::ElementsAre;

class Telemetry : public EachRuntimeTest {
protected:
    std::vector<std::string> run(Environment environment) {
        configure("<configuration><instrumentation><applications>"
                  "<application name='telemetry.exe' corvane='Enabled'/>"
                  "</applications></instrumentation></configuration>");
        program = L"telemetry";
        const std::filesystem::path seen = folder() / "seen.txt";
        environment[L"CORVANE_STRICT_IL"] = L"1";
        environment[L"DOTNET_STARTUP_HOOKS"] = managed_library().wstring();
        watch({.executable = L"telemetry.exe",
               .arguments = {seen.wstring()},
               .environment = std::move(environment),
               .with_witness = false,
               .with_debugger = false,
               .exit_code = 42});
        std::ifstream file(seen);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line);
        }
        return lines;
    }
};
INSTANTIATE_TEST_SUITE_P(Runtimes, Telemetry, ::testing::ValuesIn(kRuntimes), runtime_name);

const auto kExported =
    ElementsAre("Telemetry.Price in price, Internal, Unset, no error",
                "price in Telemetry.Serve, Client, Unset, no error",
                "Telemetry.Serve in order, Internal, Unset, no error, with its delay",
                "order in none, Internal, Unset, no error",
                "Telemetry.Fail in none, Internal, Error, System.InvalidOperationException");

TEST_P(Telemetry, OfTheProgramGetsTheCalls) {
    EXPECT_THAT(run({}), kExported);
}

// Main began before the program listened.
TEST_P(Telemetry, OfTheProgramAndOursAgree) {
    const std::filesystem::path file = folder() / "spans.jsonl";
    EXPECT_THAT(run({{L"CORVANE_OTLP_FILE", file.wstring()}, {L"CORVANE_SOURCES", L"Shop"}}),
                kExported);
    std::map<std::string, std::string> names;
    const std::vector<OtlpSpan> spans = read_otlp_file(file);
    for (const OtlpSpan& span : spans) {
        names[span.id] = span.name;
    }
    std::vector<std::string> tree;
    for (const OtlpSpan& span : spans) {
        tree.push_back(span.name + " in " + (span.parent.empty() ? "none" : names[span.parent]));
    }
    EXPECT_THAT(tree, ::testing::UnorderedElementsAre(
                          "Telemetry.Price in price", "price in Telemetry.Serve",
                          "Telemetry.Serve in order of tea", "order of tea in Telemetry.Main",
                          "Telemetry.Fail in Telemetry.Main", "Telemetry.Main in none"));
}

} // namespace
} // namespace corvane::testing
