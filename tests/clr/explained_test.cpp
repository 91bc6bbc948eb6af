// What is said of methods offline, held against what becomes of them in a real runtime.
#include "tests/support/observations.h"
#include "tests/support/real_methods.h"
#include "tests/support/runtime_test.h"
#include "tools/corvane/offline/explanation.h"
#include "tools/corvane/offline/il_lines.h"
#include "tools/corvane/offline/metadata_names.h"
#include "tools/corvane/offline/offline_runtime.h"
#include "tools/corvane/utf8.h"

#include <gmock/gmock.h>

#include <iostream>
#include <map>
#include <set>

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using namespace corvane::tool;

struct Outcome {
    Fate fate = Fate::kNotChosen;
    std::string reason{};
    bool operator==(const Outcome&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
    constexpr const char* kFates[] = {"not chosen", "instrumented", "left: "};
    return stream << kFates[static_cast<int>(outcome.fate)] << outcome.reason;
}

// What was seen of the methods of an assembly, by token.
struct SeenMethod {
    std::string name;
    Outcome outcome;
};
using SeenMethods = std::map<mdMethodDef, SeenMethod>;

std::map<std::string, SeenMethods> read_outcomes(const fs::path& report) {
    std::map<std::string, SeenMethods> assemblies;
    Observations seen = read_observations(report);
    const auto add = [&](const char* kind, Fate fate) {
        for (const Fields& fields : seen[kind]) {
            const std::string& name = fields.at(1); // "[assembly]Type:Method()"
            const auto token = static_cast<mdMethodDef>(std::stoul(fields.at(0), nullptr, 16));
            assemblies[name.substr(1, name.find(']') - 1)][token] = {
                name, {fate, fate == Fate::kLeft ? fields.at(2) : ""}};
        }
    };
    add("rewritten", Fate::kInstrumented);
    add("left", Fate::kLeft);
    add("kept", Fate::kNotChosen);
    return assemblies;
}

struct Form : NamedRow {
    bool strict;
    const wchar_t* step; // of the assemblies every so many
    std::size_t methods; // at least
};
const Form kForms[] = {{{"Strict"}, true, L"1", 70'000}, {{"Default"}, false, L"5", 12'000}};

class Explained : public EachRuntimeRowTest<Form> {
protected:
    // Some are excluded, so that there are methods that nothing chooses.
    static constexpr const wchar_t* kPatterns = L"*; !*.get_*; !System.Xml.*";

    std::map<std::string, SeenMethods> run() {
        configure("<configuration><instrumentation><applications>"
                  "<application name='prepared.exe' corvane='Enabled'/>"
                  "</applications></instrumentation></configuration>");
        program = L"prepared";
        const fs::path report = folder() / "report.txt";
        watch({.executable = L"prepared.exe",
               .arguments = {row().step},
               .environment = {{L"CORVANE_STRICT_IL", row().strict ? L"1" : L"0"},
                               {L"CORVANE_METHODS", kPatterns},
                               {L"CORVANE_LOG_LEVEL", L"1"},
                               {L"CORVANE_OBSERVER_READS_LOG", L"1"},
                               {L"CORVANE_OBSERVER_REPORT", report.wstring()},
                               {L"DOTNET_ReadyToRun", L"0"},
                               {L"DOTNET_TieredPGO", L"0"},
                               {L"DOTNET_STARTUP_HOOKS", managed_library().wstring()}},
               .witness = L"observer.dll",
               .with_debugger = false,
               .timeout = std::chrono::minutes(10),
               .exit_code = 42});
        return read_outcomes(report);
    }
};
INSTANTIATE_TEST_SUITE_P(Forms, Explained,
                         ::testing::Combine(::testing::Values(10), ::testing::ValuesIn(kForms)),
                         row_name<Form>);

TEST_P(Explained, AgreesWithARun) {
    const fs::path runtime = *newest_runtime_folder();
    std::map<Fate, std::size_t> compared;
    std::size_t assemblies = 0;
    for (const auto& [assembly, methods] : run()) {
        const fs::path file = runtime / (assembly + ".dll");
        auto bytes = read_file_bytes(file);
        if (!bytes) {
            EXPECT_THAT(assembly, ::testing::AnyOf("prepared", "kite.managed"));
            continue;
        }
        Explanation explanation({{false, row().strict}, {}, kPatterns},
                                [](std::wstring_view, const wchar_t*) { ADD_FAILURE(); });
        ASSERT_EQ(explanation.open(file, std::move(*bytes), runtime), OpenResult::kOpened) << file;
        explanation.take_neighbours(file, runtime);
        std::set<mdMethodDef> listed;
        for (const FunctionID function : explanation.runtime().functions()) {
            listed.insert(OfflineRuntime::token_of(function));
        }
        for (const auto& [token, seen] : methods) {
            // An accessor that the runtime fills in has no code of its own.
            // One that the runtime fills in, an accessor, has no code: it is left.
            EXPECT_TRUE(listed.contains(token) || seen.outcome.fate != Fate::kInstrumented)
                << seen.name << seen.outcome;
            const MethodFate fate = explanation.decide(token);
            Outcome expected = {fate.fate, to_utf8(fate.reason)};
            if (expected.reason == "it has generic types") {
                expected = {}; // skipped without a line of this level
            }
            EXPECT_EQ(seen.outcome, expected) << seen.name;
            ++compared[fate.fate];
        }
        ++assemblies;
    }
    std::cout << assemblies << " assemblies: " << compared[Fate::kInstrumented]
              << " methods instrumented, " << compared[Fate::kLeft] << " left, "
              << compared[Fate::kNotChosen] << " not chosen\n";
    EXPECT_GT(compared[Fate::kInstrumented] + compared[Fate::kLeft] + compared[Fate::kNotChosen],
              row().methods);
    EXPECT_GT(compared[Fate::kLeft], 1'000U);
    EXPECT_GT(compared[Fate::kNotChosen], 1'000U);
}

} // namespace
} // namespace corvane::testing
