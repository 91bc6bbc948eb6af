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
    /// The time of the snapshots of the thread that was stopped most, with those that failed: it stood still for no longer.
    /// </summary>
    public TimeSpan MostStopped { get; internal set; }

    /// <summary>
    /// The time spent on all else: listing threads, trying those that were never seen, storing samples, reading names.
    /// </summary>
    public TimeSpan Besides { get; internal set; }

    /// <summary>The time spent on writing results while the sampling went on.</summary>
    public TimeSpan Writing { get; internal set; }

    /// <summary>The part of the duration that all of it was: so long the sampler was busy.</summary>
    public double Share => PartOf(InSnapshots + Besides + Writing);

    /// <summary>The part of the duration that no thread was stopped for more than, however long it lived.</summary>
    public double StoppedShare => PartOf(MostStopped);

    internal SamplingCost Copy() => (SamplingCost)MemberwiseClone();

    /// <summary>The figures as one sentence.</summary>
    public override string ToString()
    {
        var text = Invariant($"{Snapshots:N0} snapshots in {Duration.TotalSeconds:N1} s");
        if (Rested > 0)
        {
            text += Invariant($", {Rested:N0} more were not needed because the thread waited");
        }
        text += Invariant($"; the sampler was busy {100 * Share:N1} % of the time, no thread was stopped for more than {100 * StoppedShare:N1} % of the run");
        if (Missed > 0)
        {
            text += Invariant($"; {Missed:N0} snapshots were missed, because the runtime cannot walk a stack at every moment");
        }
        if (Dropped > 0)
        {
            text += Invariant($"; {Dropped:N0} were dropped, because there were too many");
        }
        return Failed == 0 ? text : text + Invariant($"; {Failed:N0} calls of the profiler failed");
    }

    private static string Invariant(FormattableString text) => text.ToString(CultureInfo.InvariantCulture);

    private double PartOf(TimeSpan time) => Duration.Ticks == 0 ? 0 : time.Ticks / (double)Duration.Ticks;
}
