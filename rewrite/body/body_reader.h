// Turns the bytes of a method body (ECMA-335 II.25.4) into its model. body_writer.h is the way
// back. The reader decodes, then resolves; the writer computes the layout, then encodes.
#pragma once

#include "rewrite/body/method_body.h"

#include <cstdint>
#include <span>

namespace corvane {

// Fills an empty body. Bytes behind the method's own are ignored.
// kMalformed for whatever is not a whole and consistent body, and for extra sections other than one
// exception table, which laying out would lose; kOutOfMemory. The body is of no use then.
BodyResult read_body(std::span<const std::uint8_t> bytes, MethodBody& body);

} // namespace corvane
