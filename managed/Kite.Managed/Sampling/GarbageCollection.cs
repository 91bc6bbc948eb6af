namespace Corvane.Sampling;

// A garbage collection that was seen between two rounds of snapshots.
internal readonly struct GarbageCollection
{
    internal GarbageCollection(long microseconds, int generation)
    {
        Microseconds = microseconds;
        Generation = generation;
    }

    internal long Microseconds { get; }

    internal int Generation { get; }
}
