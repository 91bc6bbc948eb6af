// The facts about a method's receiver, parameters and result that the emitters need: the form in
// which each is passed as an object, with its tokens. If any of them cannot be passed, the method
// has no shape and is left unchanged.
#pragma once

#include "clr/cor_profiler.h"
#include "clr/metadata.h"
#include "rewrite/references/instrumentation_references.h"
#include "rewrite/shape/method_signature.h"
#include "rewrite/shape/refusal.h"
#include "selection/method_info.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvane {

// A parameter, or the result.
struct PassedValue {
    enum class As {
        kItself,  // a string, class or object; of a result any reference
        kBoxed,   // as `type`
        kNothing, // a value type whose token is no type's: null in its place
    };
    As as = As::kItself;
    bool by_ref = false;
    bool replaceable = false;  // a class, object or primitive by value: may be written back
    bool unboxed_back = false; // it is then unboxed as `type`, else cast to it
    mdToken type = mdTokenNil; // nil: no cast
};

// ldc.i4.s counts no further.
inline constexpr std::size_t kMostParameters = 127;

struct MethodShape {
    bool has_this = false;
    mdToken boxed_receiver = mdTokenNil; // the receiver is a reference to a value of this type
    std::vector<PassedValue> parameters; // kMostParameters at most
    bool returns_value = false;
    PassedValue result;
    std::span<const std::uint8_t> result_type; // the blob of its type, for a local

    // The receiver comes first.
    [[nodiscard]] std::uint8_t argument_number(std::size_t parameter) const {
        return static_cast<std::uint8_t>(parameter + (has_this ? 1 : 0));
    }
};

// The module's metadata, open for writing, and the rest of what is asked. Borrowed.
struct ShapeSource {
    ICorProfilerInfo* info;
    IMetaDataImport* import;
    IMetaDataEmit* emit;
    const method_info& method;
    const DebugLog& log;
    const InstrumentationReferences& references;
    bool strict;
};

// Fails with what the metadata answers, or with a reason for the log. Strict IL passes the receiver
// of a value type boxed, and defines the types that the module names nowhere.
HRESULT read_method_shape(const ShapeSource& source, MethodShape& shape, Refusal& refusal);

} // namespace corvane
