// What the emitters of one method share.
#pragma once

#include "rewrite/body/il_builder.h"
#include "rewrite/references/instrumentation_references.h"
#include "rewrite/shape/method_shape.h"
#include "rewrite/shape/refusal.h"
#include "selection/chosen_method.h"

#include <cstdint>

namespace corvane {

struct Emission {
    const method_info& method;
    const MethodShape& shape;
    const InstrumentationReferences& references;
    IMetaDataEmit* metadata; // of the method's module; for texts
    MethodBody& body;
    std::uint32_t index; // under which the managed library knows the method
    InstrumentationMode mode;
    Refusal& refusal;
};

// The text that a block of injected code logs, naming the method.
struct TraceText {
    const wchar_t* prefix;
    const wchar_t* label;
    const wchar_t* suffix = L"";
};

// Defined as a user string of the method's module.
HRESULT DefineTraceText(const Emission& emission, const TraceText& text, mdString& token);

// Adds locals to the method, in the order in which they are asked for. Asking goes on after one
// that could not be added; the result tells.
class Locals {
public:
    explicit Locals(Emission& emission) : emission_(emission) {}

    template <class... Type>
    std::uint32_t add(Type... type) {
        MethodBody& body = emission_.body;
        const std::uint32_t before = body.local_signature;
        const std::uint32_t index = body.AddLocal(type...);
        if (body.local_signature == before) {
            result_ = emission_.refusal.refuse(L"a local variable cannot be added to it");
        } else if (index > 0xFF) {
            result_ = emission_.refusal.refuse(L"it has too many local variables");
        }
        return index;
    }

    [[nodiscard]] HRESULT result() const { return result_; }

private:
    Emission& emission_;
    HRESULT result_ = S_OK;
};

// Fails if a local or an argument has a number that an instruction cannot hold.
HRESULT CheckOperands(Emission& emission, const IlBuilder& il);

// Loads the receiver, or null for a static method.
void EmitReceiver(IlBuilder& il, const MethodShape& shape);

// Fills a new object[] with the arguments and keeps it in a local.
void EmitArgumentArray(IlBuilder& il, const Emission& emission, std::uint32_t array);

// Makes a block of everything from `first` on: an exception in it is caught, and the text is
// logged. Either way goes on with what is emitted next.
void EmitGuard(IlBuilder& il, Emission& emission, Instruction* first, mdString text);

} // namespace corvane
