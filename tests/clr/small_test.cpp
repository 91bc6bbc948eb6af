// Methods that are chosen and so small that compilers put them into their callers: in strict form
// each call of them is recorded, whichever way the runtime gets its code.
#include "tests/support/call_tree.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>

#include <map>

namespace corvane::testing {
namespace {

using Counts = std::map<std::string, int>;

// What the program calls, and how often.
const Counts kMarked = {
    {"Program.<Main>$", 1},       {"Small..ctor", 2200},         {"Small.get_Property", 2200},
    {"Small.set_Property", 2200}, {"Small.Instance", 2200},      {"Small.Static", 2200},
    {"Small.Nothing", 2200},      {"Small.Eager", 2200},         {"Small.Text", 2200},
    {"Small.Wide", 2200},         {"Small.ByReference", 2200},   {"Small.op_Addition", 2200},
    {"Small.Condition", 2200},    {"Extensions.Extended", 2200}, {"Square.Sides", 2200},
    {"Derived.Virtual", 2200},    {"Point.GetX", 2200},          {"Elsewhere.Marked.Twice", 2000},
};
const Counts kByPattern = {
    {"Elsewhere.Unmarked..ctor", 2000},        {"Elsewhere.Unmarked.get_Start", 2000},
    {"Elsewhere.Unmarked.Next", 2000},         {"Elsewhere.Unmarked.Half", 2000},
    {"Elsewhere.Unmarked.Nested.Third", 2000},
};

struct Code : NamedRow {
    Environment environment;
};
// Compiled once and optimised; tier by tier, the second one soon, the third one by what the first
// showed.
const Code kCodes[] = {
    {{"Optimised"}, {{L"DOTNET_TieredCompilation", L"0"}}},
    {{"Tiers"},
     {{L"DOTNET_TC_CallCountingDelayMs", L"0"}, {L"DOTNET_TC_BackgroundWorkerTimeoutMs", L"0"}}},
};

class SmallTest : public RuntimeTest {
protected:
    Counts recorded(Environment environment) {
        configure("<configuration><instrumentation><applications>"
                  "<application name='small.exe' corvane='Enabled'/>"
                  "</applications></instrumentation></configuration>");
        const std::filesystem::path tree = folder() / "calls.txt";
        environment[L"CORVANE_CALL_TREE"] = tree.wstring();
        environment[L"DOTNET_STARTUP_HOOKS"] = managed_library().wstring();
        watch({.executable = L"small.exe",
               .environment = environment,
               .with_debugger = false,
               .exit_code = 42});
        Counts counts;
        for (const std::string& line : read_call_lines(tree)) {
            const std::size_t begin = line.find_first_not_of(' ');
            const std::size_t end = line.find('(');
            if (begin != 0 && end != line.npos) {
                ++counts[line.substr(begin, end - begin)];
            }
        }
        return counts;
    }

    void expect_all(const Environment& code) {
        Environment environment = code;
        environment[L"CORVANE_STRICT_IL"] = L"1";
        EXPECT_EQ(recorded(environment), kMarked);
        environment[L"CORVANE_METHODS"] = L"Elsewhere.*; !Elsewhere.Spared.*; !*Twice";
        Counts all = kMarked;
        all.insert(kByPattern.begin(), kByPattern.end());
        EXPECT_EQ(recorded(environment), all);
    }
};

class Small : public SmallTest, public ::testing::WithParamInterface<std::tuple<int, Code>> {
protected:
    void SetUp() override {
        use_runtime(std::get<0>(GetParam()));
        program = L"small";
    }
};
INSTANTIATE_TEST_SUITE_P(Runtimes, Small,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kCodes)),
                         row_name<Code>);

TEST_P(Small, AreRecordedInStrictForm) {
    expect_all(std::get<1>(GetParam()).environment);
}

struct Publication : NamedRow {
    const wchar_t* folder;
};
const Publication kPublications[] = {{{"ReadyToRun"}, L"small_ReadyToRun"},
                                     {{"Composite"}, L"small_Composite"}};

class SmallPublished : public SmallTest,
                       public ::testing::WithParamInterface<std::tuple<Publication, Code>> {
protected:
    void SetUp() override {
        use_runtime(10);
        program = std::get<0>(GetParam()).folder;
    }
};
INSTANTIATE_TEST_SUITE_P(Publications, SmallPublished,
                         ::testing::Combine(::testing::ValuesIn(kPublications),
                                            ::testing::ValuesIn(kCodes)),
                         [](const auto& row) {
                             return std::string(std::get<0>(row.param).name) + "_" +
                                    std::get<1>(row.param).name;
                         });

TEST_P(SmallPublished, AreRecordedInStrictForm) {
    expect_all(std::get<1>(GetParam()).environment);
}

} // namespace
} // namespace corvane::testing
