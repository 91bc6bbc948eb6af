using System;
using System.Diagnostics;

namespace Corvane.Instrumentation.Spans;

// Times of day for timestamps of Stopwatch. The two clocks do not run at quite the same rate, and somebody may set the
// time of day: so both are read again every now and then. One reading serves for all times of a span: its duration is
// that of the timestamps. One thread renews it, and any may ask.
internal sealed class SpanClock
{
    private const int Tries = 3;

    private static readonly TimeSpan validity = TimeSpan.FromMinutes(1);

    private readonly Func<long> timestamps;
    private readonly Func<DateTime> timeOfDay;
    private volatile Reading newest;

    internal SpanClock(Func<long> timestamps, Func<DateTime> timeOfDay)
    {
        this.timestamps = timestamps;
        this.timeOfDay = timeOfDay;
        newest = Read();
    }

    internal static SpanClock OfProcess { get; } = new SpanClock(Stopwatch.GetTimestamp, () => DateTime.UtcNow);

    internal Reading Newest => newest;

    // To be called now and then.
    internal void Renew()
    {
        if (timestamps() - newest.Timestamp >= validity.TotalSeconds * Stopwatch.Frequency)
        {
            newest = Read();
        }
    }

    // Between the two clocks the thread may have to wait. The reading that took the least time is the best one.
    private Reading Read()
    {
        Reading? best = null;
        var least = long.MaxValue;
        for (var attempt = 0; attempt < Tries; attempt++)
        {
            var before = timestamps();
            var time = timeOfDay();
            var took = timestamps() - before;
            if (best == null || took < least)
            {
                least = took;
                best = new Reading(before + (took / 2), time);
            }
        }
        return best!;
    }

    // What both clocks said at a moment. Immutable.
    internal sealed class Reading
    {
        private const long NanosecondsPerTick = 100;
        private const long NanosecondsPerSecond = 1_000_000_000;
        private const long UnixEpochTicks = 621_355_968_000_000_000;

        private readonly long unixNanoseconds;

        internal Reading(long timestamp, DateTime utc)
        {
            Timestamp = timestamp;
            unixNanoseconds = (utc.Ticks - UnixEpochTicks) * NanosecondsPerTick;
        }

        internal long Timestamp { get; }

        // Exact, and without an overflow in years.
        internal long UnixNanoseconds(long timestamp)
        {
            var since = timestamp - Timestamp;
            return unixNanoseconds + (since / Stopwatch.Frequency * NanosecondsPerSecond) +
                (since % Stopwatch.Frequency * NanosecondsPerSecond / Stopwatch.Frequency);
        }
    }
}
