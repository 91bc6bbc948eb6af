// The element types of signatures (ECMA-335 II.23.1.16), as the bytes in a blob.
#pragma once

#include <cstdint>

namespace corvane {

enum ElementType : std::uint8_t {
    kElementVoid = 0x01,
    kElementBoolean = 0x02,
    kElementChar = 0x03,
    kElementI1 = 0x04,
    kElementU1 = 0x05,
    kElementI2 = 0x06,
    kElementU2 = 0x07,
    kElementI4 = 0x08,
    kElementU4 = 0x09,
    kElementI8 = 0x0A,
    kElementU8 = 0x0B,
    kElementR4 = 0x0C,
    kElementR8 = 0x0D,
    kElementString = 0x0E,
    kElementPtr = 0x0F,
    kElementByRef = 0x10,
    kElementValueType = 0x11,
    kElementClass = 0x12,
    kElementVar = 0x13,
    kElementArray = 0x14,
    kElementGenericInst = 0x15,
    kElementTypedByRef = 0x16,
    kElementI = 0x18,
    kElementU = 0x19,
    kElementFnPtr = 0x1B,
    kElementObject = 0x1C,
    kElementSzArray = 0x1D,
    kElementMVar = 0x1E,
    kElementCModReqd = 0x1F,
    kElementCModOpt = 0x20,
    kElementSentinel = 0x41,
    kElementPinned = 0x45,
};

} // namespace corvane
