// Times of day for timestamps, by clocks that the tests set.
using System;
using System.Diagnostics;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Spans;

public class SpanClockTests
{
    private static readonly DateTime begin = new(2026, 3, 1, 12, 0, 0, DateTimeKind.Utc);

    private long timestamp = 1_000_000_007;
    private DateTime now = begin;

    private SpanClock Clock() => new(() => timestamp, () => now);

    private static long Nanoseconds(DateTime time) => (time - DateTime.UnixEpoch).Ticks * 100;

    private void Pass(TimeSpan time, double rate = 1)
    {
        timestamp += (long)(time.TotalSeconds * Stopwatch.Frequency);
        now += time * rate;
    }

    // A day of a counter that loses 20 of a million.
    [Fact]
    public void TimesStayThoseOfTheDayHoweverLongItTakes()
    {
        var clock = Clock();
        for (var minute = 0; minute < 24 * 60; minute++)
        {
            Pass(TimeSpan.FromMinutes(1), 1.00002);
            clock.Renew();
        }
        Assert.Equal(Nanoseconds(now), clock.Newest.UnixNanoseconds(timestamp));
        Assert.NotEqual(Nanoseconds(begin.AddDays(1)), clock.Newest.UnixNanoseconds(timestamp));
    }

    [Fact]
    public void AReadingServesForAMinute()
    {
        var clock = Clock();
        var first = clock.Newest;
        Pass(TimeSpan.FromSeconds(59));
        clock.Renew();
        Assert.Same(first, clock.Newest);
        Pass(TimeSpan.FromSeconds(1));
        clock.Renew();
        Assert.NotSame(first, clock.Newest);
    }

    // By whichever reading, and although somebody sets the time of day back.
    [Fact]
    public void ADurationIsThatOfTheTimestamps()
    {
        var clock = Clock();
        var started = timestamp;
        Pass(TimeSpan.FromMinutes(1));
        now -= TimeSpan.FromHours(1);
        var ended = timestamp;
        var first = clock.Newest;
        clock.Renew();
        foreach (var reading in new[] { first, clock.Newest })
        {
            Assert.Equal(60_000_000_000, reading.UnixNanoseconds(ended) - reading.UnixNanoseconds(started));
        }
        Assert.Equal(Nanoseconds(begin), first.UnixNanoseconds(started));
        Assert.Equal(Nanoseconds(begin.AddHours(-1)), clock.Newest.UnixNanoseconds(started));
    }

    // The thread waits between the two clocks, but not each time.
    [Fact]
    public void TheReadingThatTookTheLeastTimeIsTaken()
    {
        var times = 0;
        var clock = new SpanClock(() => timestamp, () =>
        {
            Pass(TimeSpan.FromSeconds(++times == 2 ? 0 : 1));
            return now;
        });
        Assert.Equal(3, times);
        Assert.Equal(Nanoseconds(now), clock.Newest.UnixNanoseconds(timestamp));
    }

    [Fact]
    public void ACenturyIsNoOverflow()
    {
        var reading = Clock().Newest;
        Assert.Equal(Nanoseconds(begin.AddDays(36_525)), reading.UnixNanoseconds(timestamp + (36_525L * 86_400 * Stopwatch.Frequency)));
    }
}
