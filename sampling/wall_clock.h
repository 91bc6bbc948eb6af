// WallClock: the time of day in microseconds, read from the performance counter.
// The system's own clock advances in steps of milliseconds, so it gives only the start.
#pragma once

#include <cstdint>

namespace corvane {

// Any thread may read it.
class WallClock {
public:
    WallClock() noexcept;

    // Since 1970-01-01 00:00 UTC.
    std::uint64_t now() const noexcept;

    // The one of the process, started when it is first asked for.
    static const WallClock& of_process() noexcept;

private:
    double microseconds_per_count_;
    std::uint64_t base_; // microseconds since 1601-01-01
    std::int64_t base_count_;
};

} // namespace corvane
