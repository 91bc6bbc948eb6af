using System;
using System.Diagnostics;

namespace Corvane.Instrumentation.Spans;

// Times of day for timestamps of Stopwatch, from one reading of both clocks: durations and order are those of
// the timestamps, whatever is done to the time of day.
internal static class SpanClock
{
    private const long NanosecondsPerTick = 100;
    private const long NanosecondsPerSecond = 1_000_000_000;
    private const long UnixEpochTicks = 621_355_968_000_000_000;

    private static readonly long anchor = Stopwatch.GetTimestamp();
    private static readonly long unixAtAnchor = (DateTime.UtcNow.Ticks - UnixEpochTicks) * NanosecondsPerTick;

    internal static long UnixNanoseconds(long timestamp) =>
        unixAtAnchor + Scale(timestamp - anchor, Stopwatch.Frequency, NanosecondsPerSecond);

    internal static long Timestamp(DateTime utc) =>
        anchor + Scale(
            ((utc.Ticks - UnixEpochTicks) * NanosecondsPerTick) - unixAtAnchor, NanosecondsPerSecond, Stopwatch.Frequency);

    // Exact, and without an overflow in years.
    private static long Scale(long value, long from, long to) => (value / from * to) + (value % from * to / from);
}
