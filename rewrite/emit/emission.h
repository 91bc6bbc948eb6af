// The shared part of the emitters of one method.
#pragma once

#include "rewrite/body/il_builder.h"
#include "rewrite/references/instrumentation_references.h"
#include "rewrite/shape/method_shape.h"
#include "rewrite/shape/refusal.h"
#include "selection/chosen_method.h"

#include <cstdint>
#include <initializer_list>

namespace corvane {

// What injected code has on the stack at most: while the prologue or the epilogue fills the array,
// the index, the receiver, the array, a position and an argument. GenericEpilogue takes as many.
inline constexpr std::uint32_t kInjectedStack = 5;

struct Emission {
    const method_info& method;
    const MethodShape& shape;
    const InstrumentationReferences& references;
    IMetaDataEmit* metadata; // of the method's module; for texts
    MethodBody& body;
    std::uint32_t index; // under which the managed library knows the method
    InstrumentationMode mode;
    bool strict; // the form of the code
    Refusal& refusal;
};

// The text that a block of injected code logs, naming the method.
struct TraceText {
    const wchar_t* prefix;
    const wchar_t* label;
    const wchar_t* suffix = L"";
};

// Defined as a user string of the method's module.
HRESULT define_trace_text(const Emission& emission, const TraceText& text, mdString& token);

struct NewLocal {
    std::uint8_t& index; // is set once the local is there
    std::uint32_t token_or_element_type;
    std::uint8_t kind = 0; // as MethodBody::AddLocal takes it; 0 for an element type alone
};

// Adds locals to the method, in this order. The first that cannot be added is the last; so is the
// first with a number that an instruction cannot hold.
HRESULT add_locals(Emission& emission, std::initializer_list<NewLocal> locals);
// Adds one for the result.
HRESULT add_result_local(Emission& emission, std::uint8_t& index);

// The emitters append where the builder stands.

// Loads the receiver, or null for a static method.
void emit_receiver(const Emission& emission, IlBuilder& il);

// Fills a new object[] with the arguments and keeps it in a local.
void emit_argument_array(const Emission& emission, IlBuilder& il, std::uint8_t array);

// Strict: a question whether anybody listens to calls now. If not, what comes next is passed over,
// up to the guard's end. Returns the first instruction; null in the default form, which does not
// ask.
Instruction* emit_gate(const Emission& emission, IlBuilder& il);

// Makes a block of everything from `first` on, the gate if there is one: an exception in it is
// caught, and the text is logged. Either way goes on with what is emitted next.
void emit_guard(const Emission& emission, IlBuilder& il, Instruction* first, mdString text);

} // namespace corvane
