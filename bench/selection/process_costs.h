// What a process has taken from its start to its end.
#pragma once

#include <cstdint>

namespace corvane::measuring {

struct ProcessCosts {
    std::uint64_t processor_time; // of all threads, in units of 100 ns
    std::uint64_t peak_memory;    // in bytes
};

} // namespace corvane::measuring
