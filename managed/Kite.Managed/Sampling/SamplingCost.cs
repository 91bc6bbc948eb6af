using System;
using System.Globalization;

namespace Corvane.Sampling;

/// <summary>What sampling took.</summary>
public sealed class SamplingCost
{
    internal SamplingCost()
    {
    }

    /// <summary>From the start to the stop.</summary>
    public TimeSpan Duration { get; internal set; }

    /// <summary>How often the threads were gone through.</summary>
    public long Rounds { get; internal set; }

    /// <summary>Snapshots that were taken.</summary>
    public long Snapshots { get; internal set; }

    /// <summary>
    /// Snapshots of the same threads that could not be taken: at some moments the runtime cannot walk a stack.
    /// </summary>
    public long Missed { get; internal set; }

    /// <summary>
    /// Calls of the profiler that ended with an error, such as a lack of memory. A snapshot of a thread that was seen
    /// before is missed as well.
    /// </summary>
    public long Failed { get; internal set; }

    /// <summary>
    /// How often a thread was not stopped because it had used no processor time: its last stack counts as waiting.
    /// </summary>
    public long Rested { get; internal set; }

    /// <summary>Snapshots beyond the most that are kept.</summary>
    public long Dropped { get; internal set; }

    /// <summary>
    /// The time spent in snapshots. A thread stands still for a part of each; the rest of it, starting and
    /// ending the thread that walks the stack, takes up another processor, if there is one.
    /// </summary>
    public TimeSpan InSnapshots { get; internal set; }

    /// <summary>
    /// The time spent on all else: listing threads, trying those that were never seen, storing samples, reading names.
    /// </summary>
    public TimeSpan Besides { get; internal set; }

    /// <summary>The part of the duration that all of it was.</summary>
    public double Share => Duration.Ticks == 0 ? 0 : (InSnapshots + Besides).Ticks / (double)Duration.Ticks;

    internal SamplingCost Copy() => (SamplingCost)MemberwiseClone();

    /// <summary>The figures as one sentence.</summary>
    public override string ToString()
    {
        var text = string.Format(
            CultureInfo.InvariantCulture,
            "{0:N0} snapshots in {1:N1} s, {2:N0} missed, {3:N0} dropped; sampling took {4:N1} % of the time, {5:N0} us a snapshot",
            Snapshots,
            Duration.TotalSeconds,
            Missed,
            Dropped,
            100 * Share,
            Snapshots + Missed == 0 ? 0 : 1000 * InSnapshots.TotalMilliseconds / (Snapshots + Missed));
        return Failed == 0 ? text : text + string.Format(CultureInfo.InvariantCulture, "; {0:N0} calls of the profiler failed", Failed);
    }
}
