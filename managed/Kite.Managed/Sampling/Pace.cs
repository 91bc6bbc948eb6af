using System;

namespace Corvane.Sampling;

// When the next round is due: an interval after the last one, more or less by a quarter, or at once if that is
// over. The distances are the same in every sampling.
internal sealed class Pace
{
    private readonly double interval;
    private readonly Random random = new Random(1);
    private double due;

    internal Pace(TimeSpan interval) => this.interval = interval.TotalMilliseconds;

    internal TimeSpan UntilNext(TimeSpan now)
    {
        due = Math.Max(due + interval * (0.75 + random.NextDouble() / 2), now.TotalMilliseconds);
        return TimeSpan.FromMilliseconds(Math.Ceiling(due - now.TotalMilliseconds));
    }
}
