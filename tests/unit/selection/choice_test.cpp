#include "selection/choice.h"

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

namespace corvane {

void PrintTo(const Choice& choice, std::ostream* out) {
    *out << "rule " << static_cast<int>(choice.rule) << ", obstacle "
         << static_cast<int>(choice.obstacle);
}

namespace {

// What a method has and the settings say: one bit each.
struct Case {
    explicit Case(unsigned number) : bits(number) {}
    bool has(unsigned bit) const { return ((bits >> bit) & 1U) != 0; }

    unsigned bits;
    const bool is_main = has(0);
    const bool is_top_level = !is_main && has(1);
    const bool is_target = has(2);
    const bool is_marked = has(3);
    const bool meets_pattern = has(4);
    const bool is_generic = has(5);
    const bool is_transparent = has(6);
    const SelectionSettings settings = {.transparency_instrumentation = has(7), .strict = has(8)};
};

Choice expected_choice(const Case& method) {
    if (method.is_transparent && !method.settings.transparency_instrumentation) {
        return {Rule::kNone, Obstacle::kTransparent};
    }
    if (method.is_main || (method.is_top_level && method.settings.strict)) {
        return {Rule::kEntryPoint};
    }
    if (method.is_target) {
        return {Rule::kTable};
    }
    if (method.is_marked || method.meets_pattern) {
        return {method.is_marked ? Rule::kAttribute : Rule::kPattern,
                method.is_generic ? Obstacle::kGeneric : Obstacle::kNone};
    }
    return {};
}

TEST(Choice, FollowsTheOrderOfTheRules) {
    const std::vector<std::uint8_t> plain = {0x00, 0x01, 0x01, 0x08};
    const std::vector<std::uint8_t> generic = {0x10, 0x01, 0x01, 0x01, 0x1E, 0x00};
    target_methods = {{L"A.T.Place", {}}, {L"A.T.Main", {}}, {L"A.T.<Main>$", {}}};
    for (unsigned bits = 0; bits < 1U << 9U; ++bits) {
        SCOPED_TRACE(bits);
        const Case method(bits);
        const auto& signature = method.is_generic ? generic : plain;
        const MethodFacts facts = {L"A",
                                   {method.is_target ? L"A.T" : L"A.Other",
                                    method.is_main        ? L"Main"
                                    : method.is_top_level ? L"<Main>$"
                                                          : L"Place",
                                    signature.data(), static_cast<std::uint32_t>(signature.size())},
                                   method.is_marked,
                                   method.is_transparent};
        const Choice expected = expected_choice(method);
        bool was_asked = false;
        const Choice choice = choose(facts, method.settings, [&] {
            was_asked = true;
            return method.meets_pattern;
        });
        EXPECT_EQ(choice, expected);
        EXPECT_EQ(is_chosen(choice),
                  expected.rule != Rule::kNone && expected.obstacle == Obstacle::kNone);
        EXPECT_EQ(was_asked, expected.obstacle != Obstacle::kTransparent &&
                                 (expected.rule == Rule::kNone || expected.rule == Rule::kPattern));
    }
    target_methods.clear();
}

TEST(Choice, AsksNoPatternAboutWhatInjectedCodeRunsOn) {
    const std::vector<std::uint8_t> signature = {0x00, 0x00, 0x01};
    MethodFacts facts = {L"", {L"A.T", L"M", signature.data(), 3}};
    for (const wchar_t* const assembly :
         {L"kite.managed", L"System.Private.CoreLib", L"mscorlib"}) {
        facts.assembly_name = assembly;
        facts.has_trace_attribute = false;
        const auto asked = [] {
            ADD_FAILURE() << "asked";
            return true;
        };
        EXPECT_EQ(choose(facts, {}, asked), Choice()) << assembly;
        facts.has_trace_attribute = true;
        EXPECT_EQ(choose(facts, {}, asked), Choice{Rule::kAttribute}) << assembly;
    }
    facts = {L"kite.managed.tests", {L"A.T", L"M", signature.data(), 3}};
    EXPECT_EQ(choose(facts, {}, [] { return true; }), Choice{Rule::kPattern});
}

TEST(Choice, HasTheModeOfItsRule) {
    EXPECT_EQ(mode_of(Rule::kEntryPoint), InstrumentationMode::kTable);
    EXPECT_EQ(mode_of(Rule::kTable), InstrumentationMode::kTable);
    EXPECT_EQ(mode_of(Rule::kAttribute), InstrumentationMode::kAttribute);
    EXPECT_EQ(mode_of(Rule::kPattern), InstrumentationMode::kAttribute);
}

} // namespace
} // namespace corvane
