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
}
