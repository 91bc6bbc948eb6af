using System;
using System.Linq;
using Corvane.Sampling;
using Xunit;

namespace Kite.Managed.Tests.Sampling;

public class PaceTests
{
    [Fact]
    public void DistancesVaryByAQuarterAroundTheInterval()
    {
        var pace = new Pace(TimeSpan.FromMilliseconds(100));
        var now = TimeSpan.Zero;
        var distances = Enumerable.Range(0, 1000).Select(_ =>
        {
            var distance = pace.UntilNext(now);
            now += distance;
            return distance.TotalMilliseconds;
        }).ToArray();
        Assert.All(distances, distance => Assert.InRange(distance, 74, 126));
        Assert.True(distances.Min() < 80 && distances.Max() > 120);
        Assert.InRange(distances.Average(), 99, 101);
    }

    [Fact]
    public void ARoundThatIsLateIsNotMadeUpFor()
    {
        var pace = new Pace(TimeSpan.FromMilliseconds(100));
        Assert.Equal(TimeSpan.Zero, pace.UntilNext(TimeSpan.FromSeconds(10)));
        Assert.InRange(pace.UntilNext(TimeSpan.FromSeconds(10)).TotalMilliseconds, 75, 125);
    }

    [Fact]
    public void TheDistancesAreTheSameInEverySampling()
    {
        var (one, other) = (new Pace(TimeSpan.FromMilliseconds(10)), new Pace(TimeSpan.FromMilliseconds(10)));
        for (var i = 0; i < 100; i++)
        {
            Assert.Equal(one.UntilNext(TimeSpan.Zero), other.UntilNext(TimeSpan.Zero));
        }
    }
}
