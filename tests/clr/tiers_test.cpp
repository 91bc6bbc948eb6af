// Methods that a runtime compiles several times are rewritten once, and whatever is rewritten in a
// module shares its references: told from the bodies and the metadata that the runtime has in the
// end.
#include "rewrite/body/body_reader.h"
#include "tests/support/call_tree.h"
#include "tests/support/observations.h"
#include "tests/support/runtime_test.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace corvane::testing {
namespace {

struct Mode : NamedRow {
    const wchar_t* strict;
};

const Mode kModes[] = {{{"Default"}, L"0"}, {{"Strict"}, L"1"}};

// Two tiers of a hot method, and no third one, which only profile-guided optimisation would make.
const Environment kTwoTiers = {{L"DOTNET_TieredPGO", L"0"},
                               {L"DOTNET_TC_CallCountingDelayMs", L"0"},
                               {L"DOTNET_TC_BackgroundWorkerTimeoutMs", L"0"}};

class Tiers : public EachRuntimeRowTest<Mode> {
protected:
    Observations observe(const wchar_t* what) {
        configure("<configuration><instrumentation><applications>"
                  "<application name='tiers.exe' corvane='Enabled'/>"
                  "</applications></instrumentation></configuration>");
        program = L"tiers";
        const std::filesystem::path report = folder() / "report.txt";
        Launch launch = {.executable = L"tiers.exe",
                         .arguments = {what},
                         .environment = kTwoTiers,
                         .witness = L"observer.dll",
                         .with_debugger = false,
                         .exit_code = 42};
        launch.environment[L"CORVANE_STRICT_IL"] = row().strict;
        launch.environment[L"CORVANE_OBSERVER_REPORT"] = report.wstring();
        launch.environment[L"CORVANE_OBSERVER_MODULE"] = L"tiers.dll";
        launch.environment[L"CORVANE_CALL_TREE"] = tree().wstring();
        launch.environment[L"CORVANE_VALUES"] = L"all";
        launch.environment[L"DOTNET_STARTUP_HOOKS"] = managed_library().wstring();
        watch(launch);
        return read_observations(report);
    }

    std::filesystem::path tree() const { return folder() / "calls.txt"; }
};
INSTANTIATE_TEST_SUITE_P(Modes, Tiers,
                         ::testing::Combine(::testing::ValuesIn(kRuntimes),
                                            ::testing::ValuesIn(kModes)),
                         row_name<Mode>);

// How often code calls each member of another module, by the names of its type and of its own.
std::map<std::string, int> calls_in(const std::string& body_in_hexadecimal, Observations& seen) {
    std::map<std::string, std::string> types;
    for (const Fields& type : seen["type"]) {
        types[type.at(0)] = type.at(2);
    }
    std::map<std::uint64_t, std::string> members;
    for (const Fields& member : seen["member"]) {
        members[std::stoull(member.at(0), nullptr, 16)] = types[member.at(1)] + "::" + member.at(2);
    }
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < body_in_hexadecimal.size(); i += 2) {
        bytes.push_back(
            static_cast<std::uint8_t>(std::stoul(body_in_hexadecimal.substr(i, 2), nullptr, 16)));
    }
    MethodBody body;
    EXPECT_EQ(read_body(bytes, body), BodyResult::kOk);
    std::map<std::string, int> calls;
    for (const Instruction& instruction : body) {
        const bool is_call = instruction.opcode == Opcode::kCall ||
                             instruction.opcode == Opcode::kCallvirt ||
                             instruction.opcode == Opcode::kNewobj;
        const auto member = is_call ? members.find(instruction.immediate) : members.end();
        if (member != members.end()) {
            ++calls[member->second];
        }
    }
    return calls;
}

// What the injected code of one method calls.
const std::map<std::string, int> kInjectedCalls = {
    {"Corvane.Instrumentation.Invokers::ContainsKey", 1},
    {"System.Reflection.MethodBase::GetCurrentMethod", 1},
    {"Corvane.Instrumentation.Invokers::RegisterMethod", 1},
    {"Corvane.Instrumentation.InstrumentationDirectives::.ctor", 2},
    {"Corvane.Instrumentation.InstrumentationDirectives::GetIndexes", 1},
    {"kite.managed.span::GenericPrologue", 1},
    {"kite.managed.span::GenericEpilogue", 1},
    {"kite.managed.span::Error", 1},
    {"kite.managed.span::Log", 5}, // three failures, the report of an exception, and the end
};

// A filter's report has no failure. At both ends it is asked whether anybody listens.
std::map<std::string, int> injected_calls(const Mode& mode) {
    std::map<std::string, int> calls = kInjectedCalls;
    if (mode.strict == std::wstring_view(L"1")) {
        calls["kite.managed.span::Log"] -= 1;
        calls["Corvane.Instrumentation.Invokers::HasListeners"] = 2;
    }
    return calls;
}

TEST_P(Tiers, HoldInjectedCodeOnce) {
    Observations seen = observe(L"all");

    std::map<std::string, int> compilations;
    std::map<std::string, std::string> names; // by token
    for (const Fields& method : seen["rewritten"]) {
        names[method.at(0)] = method.at(1);
        compilations[method.at(1)] = std::stoi(method.at(2));
        EXPECT_EQ(method.at(3), "1") << "rewritings of " << method.at(1);
    }
    EXPECT_EQ(compilations.size(), 5U);
    EXPECT_EQ(compilations["[tiers]Program:Main()"], 1);
    EXPECT_EQ(compilations["[tiers]Methods:Once()"], 1);
    EXPECT_EQ(compilations["[tiers]Methods:Hot()"], 2);
    EXPECT_EQ(compilations["[tiers]Methods:Loop()"], 2);   // the second time inside the loop
    EXPECT_EQ(compilations["[tiers]Generic`1:Size()"], 4); // all reference types share one

    EXPECT_EQ(seen["body"].size(), 5U);
    for (const Fields& body : seen["body"]) {
        const std::string& name = names[body.at(0)];
        if (name != "[tiers]Program:Main()") { // which calls other members, too
            EXPECT_EQ(calls_in(body.at(1), seen), injected_calls(row())) << name;
        }
    }
    EXPECT_EQ(read_call_tree(tree()).calls, 1 + 1 + 400 + 1 + 6);
}

TEST_P(Tiers, ShareTheReferencesOfTheirModule) {
    Observations one = observe(L"one");
    Observations all = observe(L"all");
    EXPECT_EQ(one["rewritten"].size(), 2U);
    EXPECT_EQ(all["rewritten"].size(), 5U);

    // The same, in the same order, whoever asked for them.
    for (const char* const kind : {"assembly", "type", "member", "references"}) {
        EXPECT_EQ(one[kind], all[kind]) << kind;
    }
    const auto added = [&all](std::size_t field) {
        return std::stoi(all["references"].at(1).at(field)) -
               std::stoi(all["references"].at(0).at(field));
    };
    EXPECT_EQ(added(1), 3); // the managed library, mscorlib, system
    // Strict code asks whether anybody listens, and searches the replaced indexes with a method of
    // Array's.
    const bool strict = row().strict == std::wstring_view(L"1");
    EXPECT_EQ(added(2), strict ? 9 : 8);
    EXPECT_EQ(added(3), strict ? 11 : 9);

    // None means the same as another one: that differs in more than the token.
    for (const char* const kind : {"assembly", "type", "member"}) {
        std::vector<Fields> meanings = all[kind];
        for (Fields& fields : meanings) {
            fields.erase(fields.begin());
        }
        std::ranges::sort(meanings);
        EXPECT_EQ(std::ranges::adjacent_find(meanings), meanings.end()) << kind;
    }
}

} // namespace
} // namespace corvane::testing
