using System;

namespace Corvane.Sampling;

/// <summary>What a <see cref="Sampler"/> samples, and how often.</summary>
public sealed class SamplerOptions
{
    /// <summary>The interval that there is unless another one is chosen.</summary>
    public static readonly TimeSpan DefaultInterval = TimeSpan.FromMilliseconds(10);

    /// <summary>The shortest interval.</summary>
    public static readonly TimeSpan MinInterval = TimeSpan.FromMilliseconds(1);

    /// <summary>The longest interval.</summary>
    public static readonly TimeSpan MaxInterval = TimeSpan.FromMinutes(1);

    private TimeSpan interval = DefaultInterval;
    private int maxSamples = 10_000_000;

    /// <summary>
    /// The time from one snapshot of a thread to its next, on average: each distance varies by a quarter, so
    /// that work that is itself periodic is not always met at the same point. A round of snapshots that takes
    /// longer is not hurried, the next one begins later.
    /// </summary>
    /// <exception cref="ArgumentOutOfRangeException">It is shorter or longer than the limits.</exception>
    public TimeSpan Interval
    {
        get => interval;
        set => interval = value >= MinInterval && value <= MaxInterval
            ? value
            : throw new ArgumentOutOfRangeException(
                nameof(value), value, "An interval is from one millisecond to one minute.");
    }

    /// <summary>
    /// Which threads are sampled; all of them without one. It is asked again and again, on the sampler's
    /// thread, for a thread may get its name late; the last answer counts.
    /// </summary>
    public Func<SampledThread, bool>? Filter { get; set; }

    /// <summary>How many samples and gaps are kept; later ones are counted and dropped. One takes 32 bytes.</summary>
    /// <exception cref="ArgumentOutOfRangeException">It is less than one.</exception>
    public int MaxSamples
    {
        get => maxSamples;
        set => maxSamples = value > 0
            ? value
            : throw new ArgumentOutOfRangeException(nameof(value), value, "At least one sample is kept.");
    }

    internal SamplerOptions Copy() => (SamplerOptions)MemberwiseClone();
}
