// The decision about one method, apart from what is said about it: is it chosen, by which rule, or
// what keeps it from that? Every callback about methods decides here. A pure function; the caller
// has the facts.
#pragma once

#include "selection/target_methods.h"

#include <cstdint>
#include <string_view>
#include <utility>

namespace corvane {

enum class InstrumentationMode : std::uint32_t {
    kTable = 0,     // chosen by the target table, or an entry point
    kAttribute = 1, // chosen by its trace attribute or by a pattern
};

// The first one that a method meets decides.
enum class Rule { kNone, kEntryPoint, kTable, kAttribute, kPattern };

enum class Obstacle { kNone, kTransparent, kGeneric };

struct Choice {
    Rule rule = Rule::kNone;
    Obstacle obstacle = Obstacle::kNone; // a transparent method's rule is not looked for

    bool operator==(const Choice&) const = default;
};

constexpr bool is_chosen(const Choice& choice) {
    return choice.rule != Rule::kNone && choice.obstacle == Obstacle::kNone;
}

constexpr InstrumentationMode mode_of(Rule rule) {
    return rule == Rule::kEntryPoint || rule == Rule::kTable ? InstrumentationMode::kTable
                                                             : InstrumentationMode::kAttribute;
}

struct MethodFacts {
    std::wstring_view assembly_name;
    MethodName name;
    bool has_trace_attribute = false;
    bool is_transparent = false;
};

// What is the same for every method of the process.
struct SelectionSettings {
    bool transparency_instrumentation = false; // transparent methods are methods like others
    bool strict = false;                       // nothing that is chosen may vanish
};

// Injected code and the managed library run on these, so that theirs would call itself without end.
constexpr bool is_beyond_patterns(std::wstring_view assembly_name) {
    return assembly_name == L"kite.managed" || assembly_name == L"System.Private.CoreLib" ||
           assembly_name == L"mscorlib";
}

// `meets_pattern` is asked last and only where it decides: finding a full name takes time.
template <class MeetsPattern>
Choice choose(const MethodFacts& method, const SelectionSettings& settings,
              MeetsPattern&& meets_pattern) {
    if (method.is_transparent && !settings.transparency_instrumentation) {
        return {Rule::kNone, Obstacle::kTransparent};
    }
    if (is_entry_point(method.name) || (settings.strict && is_top_level_entry_point(method.name))) {
        return {Rule::kEntryPoint};
    }
    if (is_target_method(method.name)) {
        return {Rule::kTable};
    }
    Rule rule = Rule::kNone;
    if (method.has_trace_attribute) {
        rule = Rule::kAttribute;
    } else if (!is_beyond_patterns(method.assembly_name) &&
               std::forward<MeetsPattern>(meets_pattern)()) {
        rule = Rule::kPattern;
    }
    return {rule, rule != Rule::kNone && has_generic_types(method.name) ? Obstacle::kGeneric
                                                                        : Obstacle::kNone};
}

} // namespace corvane
