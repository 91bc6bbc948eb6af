using System;

namespace Corvane.Sampling;

/// <summary>What one snapshot of a thread showed.</summary>
public readonly struct Sample
{
    private static readonly DateTime epoch = new DateTime(1970, 1, 1, 0, 0, 0, DateTimeKind.Utc);

    internal Sample(long microseconds, SampledStack? stack)
    {
        Microseconds = microseconds;
        Stack = stack;
    }

    /// <summary>When, in microseconds since 1970-01-01 00:00 UTC.</summary>
    public long Microseconds { get; }

    /// <summary>When, UTC.</summary>
    public DateTime Time => epoch.AddTicks(Microseconds * (TimeSpan.TicksPerMillisecond / 1000));

    /// <summary>Where the thread was; null from when on no snapshot could be had, until the next sample.</summary>
    public SampledStack? Stack { get; }
}
