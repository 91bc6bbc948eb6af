#include "sampling/wall_clock.h"

#include "tests/support/patched_import.h"

#include <gtest/gtest.h>

#include <optional>

namespace corvane {
namespace {

using testing::PatchedImport;

constexpr std::uint64_t k1970 = 11'644'473'600'000'000; // in microseconds since 1601

// What the platform tells of time in these tests; no value is a failure.
struct Platform {
    std::optional<LONGLONG> frequency = 10'000'000;
    std::optional<LONGLONG> counter = 5'000;
    std::uint64_t microseconds = k1970 + 1'700'000'000'123'456; // since 1601
};
Platform platform;

BOOL give(const std::optional<LONGLONG>& value, LARGE_INTEGER* result) {
    if (value) {
        result->QuadPart = *value;
    }
    return value ? TRUE : FALSE;
}
BOOL WINAPI give_frequency(LARGE_INTEGER* result) {
    return give(platform.frequency, result);
}
BOOL WINAPI give_counter(LARGE_INTEGER* result) {
    return give(platform.counter, result);
}
void WINAPI give_system_time(FILETIME* result) {
    const std::uint64_t time = platform.microseconds * 10 + 7; // what is below a microsecond
    *result = {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
}

class WallClockTest : public ::testing::Test {
protected:
    WallClockTest() { platform = {}; }

private:
    PatchedImport<decltype(QueryPerformanceFrequency)> frequency_{"QueryPerformanceFrequency",
                                                                  &give_frequency};
    PatchedImport<decltype(QueryPerformanceCounter)> counter_{"QueryPerformanceCounter",
                                                              &give_counter};
    PatchedImport<decltype(GetSystemTimeAsFileTime)> system_time_{"GetSystemTimeAsFileTime",
                                                                  &give_system_time};
};

TEST_F(WallClockTest, StartsAtTheSystemsTime) {
    EXPECT_EQ(WallClock().now(), 1'700'000'000'123'456U);
}

TEST_F(WallClockTest, GoesOnByTheCounter) {
    const WallClock clock;
    platform.microseconds += 1'000'000'000; // does not matter any more
    *platform.counter += 15'000'009;
    EXPECT_EQ(clock.now(), 1'700'000'001'623'456U);
}

TEST_F(WallClockTest, StandsStillWithoutAFrequency) {
    platform.frequency.reset();
    const WallClock clock;
    *platform.counter += 15'000'000;
    EXPECT_EQ(clock.now(), 1'700'000'000'123'456U);
}

TEST_F(WallClockTest, StandsStillWithoutACounter) {
    platform.counter.reset();
    const WallClock clock;
    EXPECT_EQ(clock.now(), 1'700'000'000'123'456U);
    platform.counter = 20; // counted from 0
    EXPECT_EQ(clock.now(), 1'700'000'000'123'458U);
}

TEST_F(WallClockTest, GoesBackByWhatACounterThatFailsHadCounted) {
    const WallClock clock;
    platform.counter.reset();
    EXPECT_EQ(clock.now(), 1'700'000'000'123'456U - 500);
}

TEST_F(WallClockTest, AsksTheSystemWhenItHasNoTime) {
    platform.microseconds = 0;
    const WallClock clock;
    platform.microseconds = k1970 + 1'000'002;
    EXPECT_EQ(clock.now(), 1'000'002U);
}

TEST_F(WallClockTest, CountsSecondsIn32Bits) {
    platform.microseconds = k1970 + 2'147'483'647'999'999;
    EXPECT_EQ(WallClock().now(), 2'147'483'647'999'999U);
    platform.microseconds += 1;
    EXPECT_EQ(static_cast<std::int64_t>(WallClock().now()), -2'147'483'648'000'000);
}

TEST(ProcessClock, TellsTheTime) {
    EXPECT_EQ(&WallClock::of_process(), &WallClock::of_process());
    const auto system_time = [] {
        FILETIME time = {};
        GetSystemTimeAsFileTime(&time);
        return ((static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime) / 10 -
               k1970;
    };
    constexpr std::uint64_t kApart = 1'000'000;
    const std::uint64_t earliest = system_time();
    const std::uint64_t start = WallClock::of_process().now();
    EXPECT_GT(start + kApart, earliest);
    EXPECT_LT(start, system_time() + kApart);

    LARGE_INTEGER frequency = {};
    LARGE_INTEGER before = {};
    LARGE_INTEGER after = {};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&before);
    const std::uint64_t first = WallClock::of_process().now();
    Sleep(300);
    const std::uint64_t second = WallClock::of_process().now();
    QueryPerformanceCounter(&after);
    const double passed = 1e6 * static_cast<double>(after.QuadPart - before.QuadPart) /
                          static_cast<double>(frequency.QuadPart);
    EXPECT_GE(second - first, 299'000U);
    EXPECT_LE(static_cast<double>(second - first), passed + 1);
}

} // namespace
} // namespace corvane
