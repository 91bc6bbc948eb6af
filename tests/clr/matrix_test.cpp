// Real programs, instrumented in real runtimes, with methods of every shape: they must not notice,
// and what was recorded of their calls must be what their sources say. Golden files for each theme
// of the program hold the calls and, in refused/, which methods were left as they are and why. What
// of it is seen only by default has a "-" in front, what only with strict IL a "+".
#include "tests/support/marked_lines.h"
#include "tests/support/runtime_test.h"

#include <algorithm>
#include <iterator>
#include <regex>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;

using TextLines = std::vector<std::string>;

struct Mode {
    const char* name;
    char mark; // of the lines that only this mode has
    Environment environment;
    const char* settings = "";
};

// The third one shows injected code to the compiler's optimizer; inlined calls would not be seen.
const Mode kModes[] = {
    {"Default", kFirstMark, {{L"CORVANE_STRICT_IL", std::nullopt}}},
    {"Strict", kSecondMark, {{L"CORVANE_STRICT_IL", L"1"}}},
    {"Optimised",
     kSecondMark,
     {{L"CORVANE_STRICT_IL", L"1"}, {L"DOTNET_TieredCompilation", L"0"}},
     " inlining='Disabled'"},
};

std::ostream& operator<<(std::ostream& stream, const Mode& mode) {
    return stream << mode.name;
}

// Names in the programs are ASCII.
std::string narrowed(const std::wstring& text) {
    std::string narrow;
    for (const wchar_t c : text) {
        narrow += static_cast<char>(c);
    }
    return narrow;
}

// The recorded calls without what no two runs have in common.
TextLines calls_in(const fs::path& file) {
    static const std::regex duration("  \\[[0-9.?]+ us\\]$");
    TextLines lines = lines_of(read_text(file));
    for (std::string& line : lines) {
        line = std::regex_replace(line, duration, "");
    }
    return lines;
}

// What the profiler complained of, each complaint once: a method may be compiled several times.
TextLines complaints_in(const Lines& log) {
    TextLines complaints;
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

constexpr DWORD kUnhandled = 0xE0434352;

struct Row {
    const char* name; // of the golden file
    std::vector<std::wstring> arguments;
    Environment environment = {};
    DWORD exit_code = 42;
    const wchar_t* program = L"matrix";
    const wchar_t* executable = L"matrix.exe";
    const wchar_t* hook = nullptr; // run behind the managed library's
};

std::ostream& operator<<(std::ostream& stream, const Row& row) {
    return stream << row.name;
}

class Matrix : public RuntimeTest,
               public ::testing::WithParamInterface<std::tuple<int, Mode, Row>> {
protected:
    void SetUp() override { use_runtime(std::get<int>(GetParam())); }
    static const Mode& mode() { return std::get<Mode>(GetParam()); }
    static const Row& row() { return std::get<Row>(GetParam()); }

    // The program with the theme, and one of the managed libraries, which writes to a file that a
    // variable names.
    Watched run(const wchar_t* managed_library, const wchar_t* variable, const fs::path& file,
                bool with_debugger = false) {
        program = row().program;
        configure("<configuration><instrumentation><applications><application name='" +
                  narrowed(row().executable) + "' corvane='Enabled'" + mode().settings +
                  "/></applications></instrumentation></configuration>");
        Environment environment = row().environment;
        environment.insert(mode().environment.begin(), mode().environment.end());
        environment[variable] = file.wstring();
        environment[L"CORVANE_VALUES"] = L"all";
        const fs::path managed = built_file(L"managed");
        environment[L"DOTNET_STARTUP_HOOKS"] =
            (managed / managed_library / "kite.managed.dll").wstring() + L';' +
            (row().hook == nullptr ? L"" : (managed / row().hook).wstring());
        return watch({.executable = row().executable,
                      .arguments = row().arguments,
                      .environment = environment,
                      .with_witness = false,
                      .with_debugger = with_debugger,
                      .exit_code = row().exit_code});
    }

    static void expect_golden(const TextLines& lines, const std::string& folder = "") {
        expect_golden_lines("matrix/" + folder + row().name + ".txt", mode().mark, lines);
    }
};

std::string matrix_name(const ::testing::TestParamInfo<Matrix::ParamType>& info) {
    std::string name = "Net" + std::to_string(std::get<int>(info.param)) + '_' +
                       std::get<Mode>(info.param).name + '_' + std::get<Row>(info.param).name;
    std::ranges::replace(name, '-', '_');
    return name;
}

// A program of its own, for an entry point of its own.
Row entry(const char* name, const wchar_t* executable, DWORD exit_code,
          const std::vector<std::wstring>& arguments) {
    return {name, arguments, {}, exit_code, L"entries", executable};
}

// The managed library's own way to replace arguments, under which nothing is printed.
Row replaced(const char* name, const wchar_t* theme) {
    return {name, {theme, L"quiet"}, {}, 42, L"matrix", L"matrix.exe", L"replacer\\replacer.dll"};
}

const Row kThemes[] = {
    {"values", {L"values"}},
    {"byreference", {L"byreference"}},
    {"unboxable", {L"unboxable"}},
    {"owners", {L"owners"}},
    {"counts", {L"counts"}},
    {"bodies", {L"bodies"}},
    {"blocks", {L"blocks"}},
    {"flavours", {L"flavours"}},
    {"exceptions", {L"exceptions"}},
    {"crafted", {L"crafted"}},
    {"repeated", {L"repeated"}},
    {"modules", {L"modules"}},
    {"shapes", {L"shapes"}},
    {"threads", {L"threads"}},
    {"exit", {L"exit"}, {}, 77},
    {"exit-elsewhere", {L"exit-elsewhere"}, {}, 77},
    {"end-in-background", {L"end-in-background"}},
    {"unhandled", {L"unhandled"}, {}, kUnhandled},
    replaced("values-replaced-by-callback", L"values"),
    replaced("byreference-replaced-by-callback", L"byreference"),
    entry("entry-nothing", L"Nothing.exe", 0, {}),
    entry("entry-arguments", L"Arguments.exe", 0, {L"one", L"two"}),
    entry("entry-number", L"Number.exe", 42, {}),
    entry("entry-number-of-arguments", L"NumberOfArguments.exe", 42, {L"one"}),
    entry("entry-later", L"Later.exe", 0, {}),
    entry("entry-later-with-arguments", L"LaterWithArguments.exe", 0, {L"one", L"two"}),
    entry("entry-number-later", L"NumberLater.exe", 42, {}),
    entry("entry-number-of-arguments-later", L"NumberOfArgumentsLater.exe", 42, {L"one"}),
};

class Theme : public Matrix {};
INSTANTIATE_TEST_SUITE_P(Matrix, Theme,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kModes),
                                            ::testing::ValuesIn(kThemes)),
                         matrix_name);

// .NET 8 has no type parameters that a by-ref-like type can take the place of.
const Row kByRefLike = {"byreflike", {}, {}, 42, L"byreflike", L"byreflike.exe"};
INSTANTIATE_TEST_SUITE_P(MatrixFrom9, Theme,
                         ::testing::Combine(::testing::Values(9, 10), ::testing::ValuesIn(kModes),
                                            ::testing::Values(kByRefLike)),
                         matrix_name);

TEST_P(Theme, IsRecordedAndNotNoticed) {
    const fs::path calls = folder() / "calls.txt";
    run(L"kite", L"CORVANE_CALL_TREE", calls);
    expect_golden(calls_in(calls));
}

// Why a method is left as it is differs neither between runtimes nor with their optimizer. That a
// theme has none left is seen by its calls.
const Row kRefusing[] = {
    {"unboxable", {L"unboxable"}},
    {"owners", {L"owners"}},
    {"counts", {L"counts"}},
    {"bodies", {L"bodies"}},
    {"exceptions", {L"exceptions"}},
    {"crafted", {L"crafted"}},
    {"repeated", {L"repeated"}},
    {"modules", {L"modules"}},
    kByRefLike,
    entry("entry-nothing", L"Nothing.exe", 0, {}),
};

class Refusals : public Matrix {};
INSTANTIATE_TEST_SUITE_P(Matrix, Refusals,
                         ::testing::Combine(::testing::Values(10),
                                            ::testing::Values(kModes[0], kModes[1]),
                                            ::testing::ValuesIn(kRefusing)),
                         matrix_name);

TEST_P(Refusals, AreExplained) {
    const Watched watched = run(L"kite", L"CORVANE_CALL_TREE", folder() / "calls.txt", true);
    expect_golden(complaints_in(watched.log), "refused/");
}

// What injected code hands over and takes back, in full, as the probe sees it in the managed
// library's place. Where it replaces arguments nothing is printed that would depend on them.
const Environment kReplaces = {{L"CORVANE_PROBE_REPLACES", L"1"}};

Row failing(const char* name, const wchar_t* member) {
    return {name, {L"guards"}, {{L"CORVANE_PROBE_FAILS", member}}};
}

const Row kProbings[] = {
    {"values-in-full", {L"values"}},
    {"byreference-in-full", {L"byreference"}},
    {"counts-in-full", {L"counts"}},
    {"values-unheard", {L"values"}, {{L"CORVANE_PROBE_LISTENS", L"0"}}},
    {"values-replaced", {L"values", L"quiet"}, kReplaces},
    {"byreference-replaced", {L"byreference", L"quiet"}, kReplaces},
    {"counts-replaced", {L"counts", L"quiet"}, kReplaces},
    {"receivers-in-full", {L"receivers"}, {{L"CORVANE_PROBE_TELLS", L"1"}}},
    // Replacements that are not of the parameters' types are no better than a failure.
    {"guards-misreplaced", {L"guards"}, {{L"CORVANE_PROBE_REPLACES", L"wrongly"}}},
    failing("guards-constructor", L".ctor"),
    failing("guards-has-listeners", L"HasListeners"),
    failing("guards-contains-key", L"ContainsKey"),
    failing("guards-register-method", L"RegisterMethod"),
    failing("guards-prologue", L"GenericPrologue"),
    failing("guards-get-indexes", L"GetIndexes"),
    failing("guards-error", L"Error"),
    failing("guards-epilogue", L"GenericEpilogue"),
};

class Probe : public Matrix {};
INSTANTIATE_TEST_SUITE_P(Matrix, Probe,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::Values(kModes[0], kModes[2]),
                                            ::testing::ValuesIn(kProbings)),
                         matrix_name);

TEST_P(Probe, IsHandedAllOfIt) {
    const fs::path report = folder() / "report.txt";
    run(L"probe", L"CORVANE_PROBE_FILE", report);
    expect_golden(lines_of(read_text(report)));
}

} // namespace
} // namespace corvane::testing
