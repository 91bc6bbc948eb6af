// Real programs, instrumented in real runtimes, method by method of every shape: they must not
// notice, and what was recorded of their calls must be what their sources say. A golden file for
// each theme holds both, and which methods were left as they are and why. What of it is seen only
// by default has a "-" in front, what only with strict IL a "+".
#include "tests/clr/runtime_test.h"
#include "tests/support/marked_lines.h"

#include <algorithm>
#include <regex>

namespace corvane::testing {
namespace {

struct Theme : NamedRow {
    const wchar_t* argument;
};

const Theme kThemes[] = {
    {"Values", L"values"},
};

struct Mode : NamedRow {
    char mark; // of the lines that only this mode has
    Environment environment;
    const char* settings = "";
};

// The third one shows the injected code to the compiler's optimizer; inlined calls would not be
// seen.
const Mode kModes[] = {
    {"Default", '-', {{L"CORVANE_STRICT_IL", std::nullopt}}},
    {"Strict", '+', {{L"CORVANE_STRICT_IL", L"1"}}},
    {"Optimised",
     '+',
     {{L"CORVANE_STRICT_IL", L"1"}, {L"DOTNET_TieredCompilation", L"0"}},
     " inlining='Disabled'"},
};

// Names in the programs are ASCII.
std::string narrowed(const std::wstring& text) {
    std::string narrow;
    for (const wchar_t c : text) {
        narrow += static_cast<char>(c);
    }
    return narrow;
}

// The recorded calls without what no two runs have in common.
std::vector<std::string> calls_in(const std::filesystem::path& file) {
    static const std::regex duration("  \\[[0-9.?]+ us\\]$");
    std::vector<std::string> lines = lines_of(read_text(file));
    for (std::string& line : lines) {
        line = std::regex_replace(line, duration, "");
    }
    return lines;
}

// What the profiler complained of, each complaint once: a method may be compiled several times.
std::vector<std::string> complaints_in(const Lines& log) {
    std::vector<std::string> complaints;
    for (const std::wstring& wide : log) {
        const std::string line = narrowed(wide);
        const bool is_one =
            line.find("Left as it is") != line.npos ||
            (line.find("Failed") != line.npos && line.find("list of excluded scopes") == line.npos);
        if (is_one && std::ranges::find(complaints, line) == complaints.end()) {
            complaints.push_back(line);
        }
    }
    return complaints;
}

class Matrix : public RuntimeTest,
               public ::testing::WithParamInterface<std::tuple<int, Mode, Theme>> {
protected:
    void SetUp() override {
        use_runtime(std::get<int>(GetParam()));
        program = L"matrix";
    }
    static const Mode& mode() { return std::get<Mode>(GetParam()); }
    static const Theme& theme() { return std::get<Theme>(GetParam()); }
};

std::string matrix_name(const ::testing::TestParamInfo<Matrix::ParamType>& info) {
    return "Net" + std::to_string(std::get<int>(info.param)) + "_" +
           std::get<Mode>(info.param).name + "_" + std::get<Theme>(info.param).name;
}

INSTANTIATE_TEST_SUITE_P(Themes, Matrix,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kModes),
                                            ::testing::ValuesIn(kThemes)),
                         matrix_name);

TEST_P(Matrix, IsRecordedAndNotNoticed) {
    configure(std::string("<configuration><instrumentation><applications>"
                          "<application name='matrix.exe' corvane='Enabled'") +
              mode().settings + "/></applications></instrumentation></configuration>");
    const std::filesystem::path calls = folder() / "calls.txt";
    Launch launch = {.executable = L"matrix.exe",
                     .arguments = {theme().argument},
                     .environment = mode().environment,
                     .with_witness = false,
                     .exit_code = 42};
    launch.environment[L"CORVANE_CALL_TREE"] = calls.wstring();
    launch.environment[L"DOTNET_STARTUP_HOOKS"] =
        built_file(L"managed").append(L"kite").append(L"kite.managed.dll").wstring();

    const Watched run = watch(launch);

    std::vector<std::string> seen = calls_in(calls);
    seen.emplace_back("complaints:");
    std::ranges::copy(complaints_in(run.log), std::back_inserter(seen));
    expect_golden_lines("matrix/" + narrowed(theme().argument) + ".txt", mode().mark, seen);
}

} // namespace
} // namespace corvane::testing
