// Reads a metadata signature blob (ECMA-335 II.23.2): method, field, local variable or property.
// Recursive descent. A hook reports every syntactic element; a derived class may override it. Of a
// method signature the parser itself keeps the summary below, which is enough for most callers. A
// parser serves one blob on one thread. The blob must outlive the pointers in the summary.
#pragma once

#include "il/token_compression.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace corvane {

// What is known of one type. The element type and the token are those of the innermost type read
// last (for int32[] that is int32); the flags tell what stood around it.
struct SigTypeInfo {
    std::uint8_t isByRef = 0; // of parameters only
    std::uint8_t isGenericInst = 0;
    std::uint8_t isArray = 0;
    std::uint8_t genericKind = 0;               // kElementValueType or kElementClass
    const std::uint8_t* genericStart = nullptr; // the instantiation within the blob,
    std::uint32_t genericLength = 0;            // in bytes
    std::uint32_t elementType = 0;
    std::uint32_t tokenRow = 0;
    std::uint32_t tokenTable = 0; // 0 TypeDef, 1 TypeRef, 2 TypeSpec

    bool operator==(const SigTypeInfo&) const = default;
};

class SigParser {
public:
    // Types nested deeper than this are refused as malformed. No compiler comes near it (the
    // runtime's own assemblies nest six deep), and a blob must not be able to exhaust the stack of
    // the thread that happens to compile the method.
    static constexpr unsigned kMaxTypeDepth = 128;

    virtual ~SigParser() = default;

    // True when the whole construct was read; bytes that follow it are not looked at. After a
    // failure the summary holds what was read until then. To be called once.
    bool Parse(const std::uint8_t* blob, std::uint32_t length);

    const std::uint8_t* sigStart = nullptr;
    const std::uint8_t* cursor = nullptr;
    const std::uint8_t* sigEnd = nullptr;
    std::vector<SigTypeInfo> params;
    SigTypeInfo current;
    SigTypeInfo returnType;
    std::uint8_t hasThis = 0;

protected:
    virtual void on_begin_method(std::uint8_t /*convention*/) {}
    virtual void on_end_method() {}
    virtual void on_param_count(std::uint32_t /*count*/) {}
    virtual void on_begin_return_type() {}
    virtual void on_end_return_type() {}
    virtual void on_begin_param() {}
    virtual void on_end_param() {}
    virtual void on_sentinel() {}
    virtual void on_generic_param_count(std::uint32_t /*count*/) {}

    virtual void on_begin_field(std::uint8_t /*kind*/) {}
    virtual void on_end_field() {}

    virtual void on_begin_locals(std::uint8_t /*kind*/) {}
    virtual void on_end_locals() {}
    virtual void on_local_count(std::uint32_t /*count*/) {}
    virtual void on_begin_local() {}
    virtual void on_end_local() {}
    virtual void on_constraint(std::uint8_t /*type*/) {}

    virtual void on_begin_property(std::uint8_t /*kind*/) {}
    virtual void on_end_property() {}

    virtual void on_begin_array_shape() {}
    virtual void on_end_array_shape() {}
    virtual void on_rank(std::uint32_t /*rank*/) {}
    virtual void on_size_count(std::uint32_t /*count*/) {}
    virtual void on_size(std::uint32_t /*size*/) {}
    virtual void on_lower_bound_count(std::uint32_t /*count*/) {}
    virtual void on_lower_bound(std::uint32_t /*bound*/) {} // as encoded, the sign not unfolded

    virtual void on_begin_type() {}
    virtual void on_end_type() {}
    virtual void on_typed_by_ref() {}
    virtual void on_by_ref() {}
    virtual void on_void() {}
    virtual void on_custom_modifier(std::uint8_t /*type*/, std::uint32_t /*table*/,
                                    std::uint32_t /*row*/) {}
    virtual void on_simple_type(std::uint8_t /*type*/) {}
    virtual void on_type_def_or_ref(std::uint32_t /*table*/, std::uint32_t /*row*/) {}
    virtual void on_generic_inst(std::uint8_t /*kind*/, std::uint32_t /*table*/,
                                 std::uint32_t /*row*/, std::uint32_t /*argument_count*/) {}
    virtual void on_type_variable(std::uint32_t /*number*/) {}
    virtual void on_method_variable(std::uint32_t /*number*/) {}
    virtual void on_value_type(std::uint8_t /*type*/) {}
    virtual void on_class(std::uint8_t /*type*/) {}
    virtual void on_pointer(std::uint8_t /*type*/) {}
    virtual void on_function_pointer(std::uint8_t /*type*/) {}
    virtual void on_array(std::uint8_t /*type*/) {}
    virtual void on_sz_array(std::uint8_t /*type*/) {}

private:
    bool parse_method(std::uint8_t convention);
    bool parse_field(std::uint8_t kind);
    bool parse_locals(std::uint8_t kind);
    bool parse_property(std::uint8_t kind);
    bool parse_return_type();
    bool parse_param();
    bool parse_local();
    bool parse_custom_modifiers();
    bool parse_type();
    bool parse_type_or_by_ref();
    bool parse_type_after(std::uint8_t type);
    bool parse_array_shape();
    bool parse_generic_inst();

    [[nodiscard]] bool next_is(std::uint8_t type) const;
    std::optional<std::uint8_t> read_byte();
    std::optional<std::uint32_t> read_compressed();
    std::optional<CodedToken> read_token();

    unsigned depth_ = 0;
};

} // namespace corvane
