// The listing of a new body, on a log channel of its own. Its readers look for errors; at the
// usual threshold no listing is made. One thread builds, lists and drops an object; the
// body's bytes must outlive it.
#pragma once

#include "base/debug_log.h"

#include <cstdint>
#include <span>

namespace corvane {

class il_disassembler {
public:
    // Throws std::bad_alloc only.
    explicit il_disassembler(std::span<const std::uint8_t> method, LogThreshold threshold = {});

    // Throws std::bad_alloc only.
    void listing() const;

private:
    std::span<const std::uint8_t> method_;
    NarrowDebugLog log_;
};

} // namespace corvane
