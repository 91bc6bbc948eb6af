#include "il/sig_parser.h"

#include "il/byte_reader.h"
#include "il/element_type.h"

namespace corvane {

namespace {

// The first byte of a signature (ECMA-335 II.23.2.3): its kind, with flags above.
constexpr std::uint8_t kKindMask = 0x0F;
constexpr std::uint8_t kVarArg = 0x05; // the last of the method kinds
constexpr std::uint8_t kField = 0x06;
constexpr std::uint8_t kLocals = 0x07;
constexpr std::uint8_t kProperty = 0x08;
constexpr std::uint8_t kGeneric = 0x10;
constexpr std::uint8_t kHasThis = 0x20;

} // namespace

bool SigParser::Parse(const std::uint8_t* blob, std::uint32_t length) {
    sigStart = blob;
    cursor = blob;
    sigEnd = blob + length;

    const auto first = read_byte();
    if (!first) {
        return false;
    }
    const std::uint8_t kind = *first & kKindMask;
    if (kind <= kVarArg) {
        hasThis = (*first & kHasThis) != 0;
        return parse_method(*first);
    }
    switch (kind) {
    case kField:
        return parse_field(*first);
    case kLocals:
        return parse_locals(*first);
    case kProperty:
        return parse_property(*first);
    default:
        return false;
    }
}

bool SigParser::parse_method(std::uint8_t convention) {
    on_begin_method(convention);
    if ((convention & kGeneric) != 0) {
        const auto generic_count = read_compressed();
        if (!generic_count) {
            return false;
        }
        on_generic_param_count(*generic_count);
    }
    const auto count = read_compressed();
    if (!count) {
        return false;
    }
    on_param_count(*count);
    if (!parse_return_type()) {
        return false;
    }

    // Nothing is reserved for the count: it is the blob's claim, which only the bytes that follow
    // make good.
    bool sentinel_met = false;
    for (std::uint32_t i = 0; i < *count; ++i) {
        if (next_is(kElementSentinel)) {
            if (sentinel_met) {
                return false;
            }
            sentinel_met = true;
            on_sentinel();
            ++cursor;
        }
        if (!parse_param()) {
            return false;
        }
        params.push_back(current);
    }
    on_end_method();
    return true;
}

bool SigParser::parse_return_type() {
    on_begin_return_type();
    if (!parse_custom_modifiers()) {
        return false;
    }
    if (next_is(kElementTypedByRef)) {
        on_typed_by_ref();
        current.elementType = *cursor++;
    } else if (next_is(kElementVoid)) {
        on_void();
        current.elementType = *cursor++;
    } else if (!parse_type_or_by_ref()) {
        return false;
    }
    on_end_return_type();
    returnType = current;
    return true;
}

bool SigParser::parse_param() {
    current.isByRef = 0;
    current.isGenericInst = 0;
    current.isArray = 0;
    current.genericKind = 0;
    current.genericStart = nullptr;
    current.genericLength = 0;

    on_begin_param();
    if (!parse_custom_modifiers()) {
        return false;
    }
    if (next_is(kElementTypedByRef)) {
        on_typed_by_ref();
        current.elementType = *cursor++;
    } else {
        current.isByRef = next_is(kElementByRef);
        if (!parse_type_or_by_ref()) {
            return false;
        }
    }
    on_end_param();
    return true;
}

bool SigParser::parse_field(std::uint8_t kind) {
    on_begin_field(kind);
    if (!parse_custom_modifiers() || !parse_type()) {
        return false;
    }
    on_end_field();
    return true;
}

bool SigParser::parse_locals(std::uint8_t kind) {
    on_begin_locals(kind);
    const auto count = read_compressed();
    if (!count) {
        return false;
    }
    on_local_count(*count);
    for (std::uint32_t i = 0; i < *count; ++i) {
        if (!parse_local()) {
            return false;
        }
    }
    on_end_locals();
    return true;
}

bool SigParser::parse_local() {
    on_begin_local();
    if (next_is(kElementTypedByRef)) {
        on_typed_by_ref();
        current.elementType = *cursor++;
    } else {
        if (!parse_custom_modifiers()) {
            return false;
        }
        while (next_is(kElementPinned)) {
            on_constraint(*cursor);
            ++cursor;
            if (!parse_custom_modifiers()) {
                return false;
            }
        }
        if (!parse_type_or_by_ref()) {
            return false;
        }
    }
    on_end_local();
    return true;
}

bool SigParser::parse_property(std::uint8_t kind) {
    on_begin_property(kind);
    const auto count = read_compressed();
    if (!count) {
        return false;
    }
    on_param_count(*count);
    if (!parse_custom_modifiers()) {
        return false;
    }
    // The property's own type is taken for the first of the counted parameters, so the last one
    // stays unread.
    for (std::uint32_t i = 0; i < *count; ++i) {
        if (!parse_param()) {
            return false;
        }
    }
    on_end_property();
    return true;
}

bool SigParser::parse_custom_modifiers() {
    while (next_is(kElementCModReqd) || next_is(kElementCModOpt)) {
        const std::uint8_t type = *cursor++;
        const auto token = read_token();
        if (!token) {
            return false;
        }
        on_custom_modifier(type, token->tag, token->row);
    }
    return true;
}

bool SigParser::parse_type_or_by_ref() {
    if (next_is(kElementByRef)) {
        on_by_ref();
        ++cursor;
    }
    return parse_type();
}

bool SigParser::parse_type() {
    if (depth_ == kMaxTypeDepth) {
        return false;
    }
    ++depth_;
    on_begin_type();
    const auto type = read_byte();
    if (!type) {
        return false;
    }
    current.elementType = *type;
    if (!parse_type_after(*type)) {
        return false;
    }
    on_end_type();
    --depth_;
    return true;
}

bool SigParser::parse_type_after(std::uint8_t type) {
    switch (type) {
    case kElementBoolean:
    case kElementChar:
    case kElementI1:
    case kElementU1:
    case kElementI2:
    case kElementU2:
    case kElementI4:
    case kElementU4:
    case kElementI8:
    case kElementU8:
    case kElementR4:
    case kElementR8:
    case kElementString:
    case kElementI:
    case kElementU:
    case kElementObject:
        on_simple_type(type);
        return true;

    case kElementPtr:
        on_pointer(type);
        if (!parse_custom_modifiers()) {
            return false;
        }
        if (next_is(kElementVoid)) {
            on_void();
            ++cursor;
            return true;
        }
        return parse_type();

    case kElementValueType:
    case kElementClass: {
        if (type == kElementValueType) {
            on_value_type(type);
        } else {
            on_class(type);
        }
        const auto token = read_token();
        if (!token) {
            return false;
        }
        current.tokenTable = token->tag;
        current.tokenRow = token->row;
        on_type_def_or_ref(current.tokenTable, current.tokenRow);
        return true;
    }

    case kElementVar:
    case kElementMVar: {
        const auto number = read_compressed();
        if (!number) {
            return false;
        }
        if (type == kElementVar) {
            on_type_variable(*number);
        } else {
            on_method_variable(*number);
        }
        return true;
    }

    case kElementArray:
        current.isArray = 1;
        on_array(type);
        return parse_type() && parse_array_shape();

    case kElementSzArray:
        current.isArray = 1;
        on_sz_array(type);
        return parse_custom_modifiers() && parse_type();

    case kElementGenericInst:
        return parse_generic_inst();

    case kElementFnPtr: {
        // The inner signature goes into the same summary: its parameters join the list, ahead of
        // the one that they belong to, and its return type replaces the method's.
        on_function_pointer(type);
        const auto convention = read_byte();
        return convention && parse_method(*convention);
    }

    default:
        return true;
    }
}

bool SigParser::parse_array_shape() {
    on_begin_array_shape();
    const auto rank = read_compressed();
    if (!rank) {
        return false;
    }
    on_rank(*rank);

    const auto size_count = read_compressed();
    if (!size_count) {
        return false;
    }
    on_size_count(*size_count);
    for (std::uint32_t i = 0; i < *size_count; ++i) {
        const auto size = read_compressed();
        if (!size) {
            return false;
        }
        on_size(*size);
    }

    const auto bound_count = read_compressed();
    if (!bound_count) {
        return false;
    }
    on_lower_bound_count(*bound_count);
    for (std::uint32_t i = 0; i < *bound_count; ++i) {
        const auto bound = read_compressed();
        if (!bound) {
            return false;
        }
        on_lower_bound(*bound);
    }
    on_end_array_shape();
    return true;
}

bool SigParser::parse_generic_inst() {
    const std::uint8_t* const start = cursor - 1;
    current.genericStart = start;
    const auto kind = read_byte();
    if (kind != kElementValueType && kind != kElementClass) {
        return false;
    }
    current.isGenericInst = 1;
    current.genericKind = *kind;

    const auto token = read_token();
    const auto argument_count = token ? read_compressed() : std::nullopt;
    if (!argument_count) {
        return false;
    }
    on_generic_inst(*kind, token->tag, token->row, *argument_count);
    for (std::uint32_t i = 0; i < *argument_count; ++i) {
        if (!parse_type()) {
            return false;
        }
    }
    // What stood among the arguments has left its own marks; callers want the whole.
    current.isGenericInst = 1;
    current.genericKind = *kind;
    current.genericStart = start;
    current.genericLength = static_cast<std::uint32_t>(cursor - start);
    return true;
}

bool SigParser::next_is(std::uint8_t type) const {
    return cursor != sigEnd && *cursor == type;
}

std::optional<std::uint8_t> SigParser::read_byte() {
    ByteReader reader(cursor, sigEnd);
    const auto byte = reader.read<std::uint8_t>();
    cursor = reader.cursor();
    return byte;
}

std::optional<std::uint32_t> SigParser::read_compressed() {
    ByteReader reader(cursor, sigEnd);
    const auto value = reader.read_compressed();
    cursor = reader.cursor();
    return value;
}

std::optional<CodedToken> SigParser::read_token() {
    const auto coded = read_compressed();
    return coded ? std::optional(split_coded_token(*coded)) : std::nullopt;
}

} // namespace corvane
