// What the bytes of a program or a DLL say of it, without loading it. The bytes may be anything.
// Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::tool {

inline constexpr std::uint16_t kMachineX86 = 0x014C;
inline constexpr std::uint16_t kMachineX64 = 0x8664;
inline constexpr std::uint16_t kMachineArm64 = 0xAA64;

// What a program in a single file carries.
struct Bundle {
    std::vector<std::string> files;
    std::string runtime_config; // the JSON text; empty if there is none
};

struct Image {
    std::uint16_t machine = 0;
    bool is_managed = false;     // it has managed code of its own
    bool runs_as_32_bit = false; // a managed program decides it by more than the machine
    bool is_app_host = false; // the native program that starts the managed one beside it, or in it
    bool is_native_aot = false;    // compiled ahead of time, without a runtime that loads profilers
    std::set<std::string> exports; // by name
    std::optional<Bundle> bundle;
};

// Nothing for a file that is no image of Windows.
std::optional<Image> read_image(std::string_view bytes);

} // namespace corvane::tool
