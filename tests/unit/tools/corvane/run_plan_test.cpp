#include "tools/corvane/run_plan.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace corvane::tool {
namespace {

const RunPlaces kPlaces = {L"C:\\C\\CorvaneProfiler.dll", L"C:\\C\\kite.managed.dll", L"C:\\T\\run",
                           L"C:\\T\\run", L"C:\\work"};

std::optional<std::wstring> value_of(const Changes& changes, const std::wstring& name) {
    const auto found = std::ranges::find(changes, name, &Changes::value_type::first);
    return found == changes.end() ? std::nullopt : found->second;
}

std::optional<std::wstring> set_by(const RunOptions& options, const std::wstring& name,
                                   const Environment& environment = {}) {
    return value_of(run_changes(options, kPlaces, environment), name);
}

TEST(RunChanges, HaveBothFamiliesTheHookAndTheSummary) {
    RunOptions options;
    options.children = true;
    EXPECT_EQ(run_changes(options, kPlaces, {}),
              (Changes{{L"CORECLR_ENABLE_PROFILING", L"1"},
                       {L"CORECLR_PROFILER", L"{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}"},
                       {L"CORECLR_PROFILER_PATH", kPlaces.profiler},
                       {L"COR_ENABLE_PROFILING", L"1"},
                       {L"COR_PROFILER", L"{5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}"},
                       {L"COR_PROFILER_PATH", kPlaces.profiler},
                       {L"DOTNET_STARTUP_HOOKS", kPlaces.library},
                       {L"CORVANE_HOME_APM_DOTNET", L"C:\\T\\run"},
                       {L"CORVANE_STRICT_IL", L"1"},
                       {L"CORVANE_CONTROL", L"1"},
                       {L"CORVANE_SUMMARY", L"C:\\T\\run\\summary-{pid}.txt"}}));
}

TEST(RunChanges, KeepTheHooksThatAreThere) {
    EXPECT_EQ(set_by({}, L"DOTNET_STARTUP_HOOKS", {{L"DOTNET_STARTUP_HOOKS", L"C:\\a.dll;b"}}),
              L"C:\\C\\kite.managed.dll;C:\\a.dll;b");
}

TEST(RunChanges, RemoveThePathThatTheRuntimePrefers) {
    const Changes changes =
        run_changes({}, kPlaces, {{L"CORECLR_PROFILER_PATH_64", L"C:\\other.dll"}});
    EXPECT_NE(std::ranges::find(changes, Changes::value_type{L"CORECLR_PROFILER_PATH_64", {}}),
              changes.end());
}

TEST(RunChanges, LeaveNothingOfAnotherRunInForce) {
    RunOptions options;
    options.children = true;
    options.otlp = L"http://collector:4318";
    const Changes changes = run_changes(
        options, kPlaces,
        {{L"CORVANE_RESTORE", L"A=1\n"}, {L"OTEL_EXPORTER_OTLP_TRACES_ENDPOINT", L"http://other"}});
    for (const wchar_t* const name : {L"CORVANE_RESTORE", L"OTEL_EXPORTER_OTLP_TRACES_ENDPOINT"}) {
        EXPECT_NE(std::ranges::find(changes, Changes::value_type{name, {}}), changes.end());
    }
}

TEST(RunChanges, TakeThemselvesBackForChildrenUnlessTheyAreProfiled) {
    RunOptions options;
    const auto restored =
        set_by(options, L"CORVANE_RESTORE", {{L"CORVANE_STRICT_IL", L"0"}, {L"OTHER", L"1"}});
    ASSERT_TRUE(restored);
    EXPECT_NE(restored->find(L"CORVANE_STRICT_IL=0\n"), restored->npos);
    EXPECT_NE(restored->find(L"\nCOR_PROFILER\n"), restored->npos);
    EXPECT_EQ(restored->find(L"OTHER"), restored->npos);
    options.children = true;
    EXPECT_EQ(set_by(options, L"CORVANE_RESTORE"), std::nullopt);
}

TEST(RunChanges, NameWhatTheOptionsAskFor) {
    RunOptions options;
    options.tree = L"C:\\o\\tree.txt";
    options.trace = L"C:\\o\\trace.json";
    options.otlp = L"C:\\o\\spans.jsonl";
    options.sample_interval = 5;
    options.values = L"safe";
    options.methods = {L"Shop.*", L"!*.ToString"};
    options.log = L"C:\\o\\log.txt";
    options.level = 4;
    const Changes changes = run_changes(options, kPlaces, {});
    EXPECT_EQ(value_of(changes, L"CORVANE_CALL_TREE"), L"C:\\o\\tree.txt");
    EXPECT_EQ(value_of(changes, L"CORVANE_TRACE_FILE"), L"C:\\o\\trace.json");
    EXPECT_EQ(value_of(changes, L"CORVANE_OTLP_FILE"), L"C:\\o\\spans.jsonl");
    EXPECT_EQ(value_of(changes, L"CORVANE_SAMPLE"), L"C:\\work");
    EXPECT_EQ(value_of(changes, L"CORVANE_SAMPLE_INTERVAL_MS"), L"5");
    EXPECT_EQ(value_of(changes, L"CORVANE_VALUES"), L"safe");
    EXPECT_EQ(value_of(changes, L"CORVANE_METHODS"), L"Shop.*;!*.ToString");
    EXPECT_EQ(value_of(changes, L"CORVANE_LOG_FILE"), L"C:\\o\\log.txt");
    EXPECT_EQ(value_of(changes, L"CORVANE_LOG_LEVEL"), L"4");
    EXPECT_EQ(value_of(changes, L"CORVANE_SUMMARY"), std::nullopt);
}

TEST(RunChanges, GiveEachChildFilesOfItsOwn) {
    RunOptions options;
    options.children = true;
    options.tree = L"C:\\o.d\\tree.txt";
    options.otlp = L"C:\\o.d\\spans";
    options.trace = L"C:\\o.d\\{pid}.json";
    const Changes changes = run_changes(options, kPlaces, {});
    EXPECT_EQ(value_of(changes, L"CORVANE_CALL_TREE"), L"C:\\o.d\\tree-{pid}.txt");
    EXPECT_EQ(value_of(changes, L"CORVANE_OTLP_FILE"), L"C:\\o.d\\spans-{pid}");
    EXPECT_EQ(value_of(changes, L"CORVANE_TRACE_FILE"), L"C:\\o.d\\{pid}.json");
}

TEST(RunChanges, SendSpansWhereTheAddressSays) {
    RunOptions options;
    options.otlp = L"";
    EXPECT_EQ(set_by(options, L"OTEL_EXPORTER_OTLP_ENDPOINT"), L"http://localhost:4318");
    EXPECT_EQ(set_by(options, L"OTEL_EXPORTER_OTLP_ENDPOINT",
                     {{L"OTEL_EXPORTER_OTLP_TRACES_ENDPOINT", L"http://collector"}}),
              std::nullopt);
    options.otlp = L"https://collector";
    EXPECT_EQ(set_by(options, L"OTEL_EXPORTER_OTLP_ENDPOINT"), L"https://collector");
    EXPECT_EQ(set_by(options, L"CORVANE_OTLP_FILE"), std::nullopt);
}

TEST(RunChanges, PutSamplesAsideThatAreMoved) {
    RunOptions options;
    options.profiles[0] = L"C:\\o\\f.svg";
    EXPECT_EQ(set_by(options, L"CORVANE_SAMPLE"), L"C:\\T\\run\\samples");
}

TEST(RunChanges, ShowOnTheConsoleWhereNobodyWaitsForTheEnd) {
    RunPlaces places = kPlaces;
    places.results.clear();
    const Changes changes = run_changes({}, places, {});
    EXPECT_EQ(value_of(changes, L"CORVANE_SUMMARY"), L"stderr");
    EXPECT_EQ(value_of(changes, L"CORVANE_RESTORE"), std::nullopt);
}

TEST(OutputFiles, AreNamedOnce) {
    RunOptions options;
    options.tree = L"C:\\o\\a.txt";
    options.profiles.back() = L"C:\\O\\A.TXT";
    EXPECT_EQ(named_twice(output_files(options)), L"two options name the file C:\\O\\A.TXT");
    options.profiles.back() = L"C:\\o\\b.txt";
    options.summary = L"";
    options.otlp = L"http://c";
    EXPECT_EQ(output_files(options), (std::vector<std::wstring>{L"C:\\o\\a.txt", L"C:\\o\\b.txt"}));
    EXPECT_EQ(named_twice(output_files(options)), std::nullopt);
}

TEST(RunConfig, EnablesTheNamesAsTheyAre) {
    EXPECT_EQ(run_config({"it's & b.exe", "*"}, true),
              "<configuration>\n  <instrumentation>\n    <applications>\n"
              "      <application name='it&apos;s &amp; b.exe' corvane='Enabled' "
              "inlining='Disabled'/>\n"
              "      <application name='*' corvane='Enabled' inlining='Disabled'/>\n"
              "    </applications>\n  </instrumentation>\n</configuration>\n");
}

} // namespace
} // namespace corvane::tool
