using System;
using System.Collections.Generic;

namespace Corvane.Sampling;

/// <summary>The samples of one thread.</summary>
public sealed class ThreadProfile
{
    internal ThreadProfile(SampledThread thread, IReadOnlyList<Sample> samples)
    {
        Thread = thread;
        Samples = samples;
    }

    /// <summary>The thread, with the last name that it had.</summary>
    public SampledThread Thread { get; }

    /// <summary>The samples, by time.</summary>
    public IReadOnlyList<Sample> Samples { get; }

    // Each with the time that it stands for, which goes on to the next one.
    internal IEnumerable<(Sample Sample, long Microseconds)> Timed(long lastMicroseconds)
    {
        for (var i = 0; i < Samples.Count; i++)
        {
            yield return (Samples[i], i + 1 < Samples.Count
                ? Math.Max(0, Samples[i + 1].Microseconds - Samples[i].Microseconds)
                : Samples[i].Count * lastMicroseconds);
        }
    }
}
