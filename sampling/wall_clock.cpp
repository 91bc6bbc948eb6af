#include "sampling/wall_clock.h"

#include <windows.h>

namespace corvane {
namespace {

constexpr std::uint64_t kMicrosecondsFrom1601To1970 = 11'644'473'600'000'000;
constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;

// Microseconds since 1601-01-01.
std::uint64_t system_time() noexcept {
    FILETIME time = {};
    GetSystemTimeAsFileTime(&time);
    return ((static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime) / 10;
}

// 0 when there is no counter.
std::int64_t count() noexcept {
    LARGE_INTEGER counter = {};
    return QueryPerformanceCounter(&counter) != FALSE ? counter.QuadPart : 0;
}

// 0, which stops the clock, when there is no counter.
double microseconds_per_count() noexcept {
    LARGE_INTEGER frequency = {};
    return QueryPerformanceFrequency(&frequency) != FALSE
               ? static_cast<double>(kMicrosecondsPerSecond) /
                     static_cast<double>(frequency.QuadPart)
               : 0;
}

} // namespace

WallClock::WallClock() noexcept
    : microseconds_per_count_(microseconds_per_count()),
      base_(system_time()),
      base_count_(count()) {}

std::uint64_t WallClock::now() const noexcept {
    // Signed on its way: a counter that fails later on gives a time before the base.
    const auto passed = static_cast<std::int64_t>(static_cast<double>(count() - base_count_) *
                                                  microseconds_per_count_);
    std::uint64_t time = base_ + static_cast<std::uint64_t>(passed);
    if (time == 0) {
        time = system_time();
    }
    const auto since_1970 = static_cast<std::int64_t>(time - kMicrosecondsFrom1601To1970);
    // Wanted: callers get seconds of 32 bits, which are negative from 2038 on.
    const auto seconds = static_cast<std::int32_t>(since_1970 / kMicrosecondsPerSecond);
    return static_cast<std::uint64_t>(seconds * kMicrosecondsPerSecond +
                                      since_1970 % kMicrosecondsPerSecond);
}

const WallClock& WallClock::of_process() noexcept {
    static const WallClock clock;
    return clock;
}

} // namespace corvane
