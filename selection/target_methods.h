// The methods of frameworks and libraries that are always instrumented, and two queries of the JIT
// callbacks: is a method one of these, and is it a program's entry point?
// The thread that initialises the profiler builds the table once. Afterwards it is only read.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace corvane {

// Element types of ECMA-335 II.23.1.16, one for each parameter.
struct ParameterTypes {
    std::array<std::uint8_t, 3> codes{};
    std::uint8_t count = 0;
};

struct TargetMethod {
    std::wstring_view name; // the type's full name, a ".", the method's name
    // Where a name has several overloads: the one that is meant.
    std::optional<ParameterTypes> parameter_types;
};

// What the selection needs to know of a method; the names and the blob are the caller's.
struct MethodName {
    std::wstring_view type_name;
    std::wstring_view method_name;
    const std::uint8_t* signature = nullptr;
    std::uint32_t signature_size = 0;
};

// The switches that add rows for logging libraries.
struct LogTraceIdSwitches {
    bool enabled = false;       // either of the other two
    bool insert_id = false;     // the trace id is written into log lines
    bool add_attribute = false; // the trace id is attached to log events
};

// Written by build_target_methods during start-up, read-only from then on.
extern std::vector<TargetMethod> target_methods;

void build_target_methods(const LogTraceIdSwitches& switches);

// Names compare exactly. The signature is looked at only for rows with parameter types.
bool is_target_method(const MethodName& method);

// A static method named "Main", of any type and with any parameters.
bool is_entry_point(const MethodName& method);

// What the compiler of C# makes of statements outside of any type: a static method "<Main>$".
bool is_top_level_entry_point(const MethodName& method);

// Whether the name alone lets a method be chosen by one of the rules above, whatever its type.
bool can_be_chosen_by_name(std::wstring_view method_name);

// Whether a method's signature says that its code is shared between instantiations, or takes what
// cannot be boxed: a generic method, a return type or a parameter that is a type variable, a
// TypedReference.
bool has_generic_types(const MethodName& method);

} // namespace corvane
