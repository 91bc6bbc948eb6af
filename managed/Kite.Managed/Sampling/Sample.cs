using System;

namespace Corvane.Sampling;

/// <summary>What a snapshot of a thread showed.</summary>
public readonly struct Sample
{
    private static readonly DateTime epoch = new DateTime(1970, 1, 1, 0, 0, 0, DateTimeKind.Utc);

    internal Sample(long microseconds, SampledStack? stack, bool isWaiting = false, int count = 1, SampledOperation? operation = null)
    {
        InOperation = operation;
        Microseconds = microseconds;
        Stack = stack;
        IsWaiting = isWaiting;
        Count = count;
    }

    /// <summary>When, in microseconds since 1970-01-01 00:00 UTC.</summary>
    public long Microseconds { get; }

    /// <summary>When, UTC.</summary>
    public DateTime Time => epoch.AddTicks(Microseconds * (TimeSpan.TicksPerMillisecond / 1000));

    /// <summary>Where the thread was; null from when on no snapshot could be had, until the next sample.</summary>
    public SampledStack? Stack { get; }

    /// <summary>
    /// Whether the thread waited there: the function waits by its nature, or the thread used no processor time.
    /// </summary>
    public bool IsWaiting { get; }

    /// <summary>
    /// How many rounds of the sampler it stands for: more than one if the thread was not stopped again, because it
    /// still waited.
    /// </summary>
    public int Count { get; }

    /// <summary>
    /// What the thread was busy with: the name of a region, or of a request or another root span where those are
    /// recorded. Null if there was nothing of the kind.
    /// </summary>
    public string? Operation => InOperation?.Name;

    internal SampledOperation? InOperation { get; }

    internal Sample Waiting => new Sample(Microseconds, Stack, true, Count, InOperation);

    internal Sample OnceMore => new Sample(Microseconds, Stack, IsWaiting, Count + 1, InOperation);
}
