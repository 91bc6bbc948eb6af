using System;
using System.Collections.Generic;

namespace Corvane.Sampling;

/// <summary>The samples of one thread.</summary>
public sealed class ThreadProfile
{
    private readonly StackSums? settled;
    private readonly int alreadySummed;
    private readonly long? lastLook;

    // Of the first samples there may be sums already. The last one stands until the thread was looked at for the last time.
    internal ThreadProfile(
        SampledThread thread, IReadOnlyList<Sample> samples, StackSums? settled = null, int alreadySummed = 0, long? lastLook = null)
    {
        this.lastLook = lastLook;
        Thread = thread;
        Samples = samples;
        this.settled = settled;
        this.alreadySummed = alreadySummed;
    }

    /// <summary>The thread, with the last name that it had.</summary>
    public SampledThread Thread { get; }

    /// <summary>The samples, by time.</summary>
    public IReadOnlyList<Sample> Samples { get; }

    // Those of one profile agree about which operations are the same.
    internal StackSums SumUp(long lastMicroseconds, OperationTable operations)
    {
        var sums = settled?.Copy() ?? new StackSums();
        for (var i = alreadySummed; i < Samples.Count; i++)
        {
            sums.Add(Samples[i], Time(i, lastMicroseconds));
        }
        sums.Unite(operations.Standing);
        return sums;
    }

    // Each with the time that it stands for, which goes on to the next one.
    internal IEnumerable<(Sample Sample, long Microseconds)> Timed(long lastMicroseconds)
    {
        for (var i = 0; i < Samples.Count; i++)
        {
            yield return (Samples[i], Time(i, lastMicroseconds));
        }
    }

    // A clock that goes back makes no negative time.
    private long Time(int index, long lastMicroseconds)
    {
        var sample = Samples[index];
        return index + 1 < Samples.Count ? Math.Max(0, Samples[index + 1].Microseconds - sample.Microseconds)
            : lastLook is { } last ? Math.Max(0, last - sample.Microseconds) + lastMicroseconds
            : sample.Count * lastMicroseconds;
    }
}
