// The ids under which this server is registered and loaded.
#pragma once

#include <windows.h>

namespace corvane {

// {5D3A9C71-0B6E-4F28-9A41-7C2E8B04D1F6}
inline constexpr CLSID kProfilerClassId = {
    0x5D3A9C71, 0x0B6E, 0x4F28, {0x9A, 0x41, 0x7C, 0x2E, 0x8B, 0x04, 0xD1, 0xF6}};

// {E1B7402C-93D5-4A6F-B28E-0F59C3A7D214}
inline constexpr GUID kAppId = {
    0xE1B7402C, 0x93D5, 0x4A6F, {0xB2, 0x8E, 0x0F, 0x59, 0xC3, 0xA7, 0xD2, 0x14}};

// {8C64B0F3-2A17-4D95-A3BE-51F7D0C9E826}, as in type_library.idl
inline constexpr GUID kTypeLibraryId = {
    0x8C64B0F3, 0x2A17, 0x4D95, {0xA3, 0xBE, 0x51, 0xF7, 0xD0, 0xC9, 0xE8, 0x26}};

} // namespace corvane
