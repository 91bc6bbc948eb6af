namespace CallMethods;

// One method three times: as it is, for the profiler to instrument, and with the injected code written in C#.
// Each is called so many times in a row, and the sum of what it returns is returned.
internal abstract class Methods
{
    // Of parameters.
    internal abstract int Count { get; }

    internal abstract int CallPlain(int calls);

    internal abstract int CallTraced(int calls);

    internal abstract int CallByHand(int calls);
}
