using System;
using System.Linq;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class DurationHistogramTests
{
    private static DurationHistogram Of(params long[] durations)
    {
        var histogram = new DurationHistogram();
        foreach (var duration in durations)
        {
            histogram.Add(duration);
        }
        return histogram;
    }

    [Fact]
    public void NothingHasNoQuantile() => Assert.Equal(0, new DurationHistogram().Quantile(0.5));

    [Fact]
    public void EveryDurationIsAtMostASixteenthOff()
    {
        for (long duration = 1; duration > 0 && duration < long.MaxValue / 3; duration += 1 + (duration / 7))
        {
            var shown = Of(duration).Quantile(0.5);
            Assert.InRange(shown, duration * 15.0 / 16, duration * 17.0 / 16);
        }
        Assert.InRange(Of(long.MaxValue).Quantile(1), long.MaxValue * 15.0 / 16, long.MaxValue * 17.0 / 16);
    }

    [Fact]
    public void SmallDurationsAreExact()
    {
        for (long duration = 0; duration < 16; duration++)
        {
            Assert.Equal(duration, Of(duration).Quantile(0.5));
        }
    }

    [Fact]
    public void ANegativeDurationCountsAsNone()
    {
        Assert.Equal(0, Of(-5, long.MinValue).Quantile(1));
        Assert.Equal(2, Of(-5, long.MinValue).Count);
    }

    [Fact]
    public void AQuantileIsOfTheOrderedDurations()
    {
        var histogram = Of([.. Enumerable.Range(1, 10).Select(number => (long)number)]);
        Assert.Equal(1, histogram.Quantile(0));
        Assert.Equal(1, histogram.Quantile(0.1));
        Assert.Equal(2, histogram.Quantile(0.11));
        Assert.Equal(5, histogram.Quantile(0.5));
        Assert.Equal(10, histogram.Quantile(0.95));
        Assert.Equal(10, histogram.Quantile(1));
    }

    [Fact]
    public void AnotherOnesDurationsAreAdded()
    {
        var histogram = Of(1, 2, 1000);
        histogram.Add(Of(3, 4, 5_000_000));
        Assert.Equal(6, histogram.Count);
        Assert.Equal(3, histogram.Quantile(0.5));
        Assert.InRange(histogram.Quantile(1), 4_700_000, 5_300_000);
    }
}
