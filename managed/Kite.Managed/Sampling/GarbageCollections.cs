using System.Collections.Generic;

namespace Corvane.Sampling;

// Garbage collections between two rounds of snapshots.
internal readonly struct GarbageCollections
{
    internal GarbageCollections(long microseconds, int all, int full)
    {
        Microseconds = microseconds;
        All = all;
        Full = full;
    }

    internal long Microseconds { get; }

    internal int All { get; }

    // Those of all generations.
    internal int Full { get; }

    // From so many on two are one, at the time of the first.
    internal static void Thin(List<GarbageCollections> some, int most)
    {
        if (some.Count < most)
        {
            return;
        }
        for (var i = 0; i < most / 2; i++)
        {
            var (one, other) = (some[2 * i], some[2 * i + 1]);
            some[i] = new GarbageCollections(one.Microseconds, one.All + other.All, one.Full + other.Full);
        }
        some.RemoveRange(most / 2, most / 2);
    }
}
