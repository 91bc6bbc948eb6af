// Small methods of another module: marked ones, and ones that only a pattern chooses.
using Corvane.Instrumentation;

namespace Elsewhere;

public static class Marked
{
    [Trace]
    public static int Twice(int value) => value * 2;
}

public sealed class Unmarked
{
    private readonly int start;

    public Unmarked(int start) => this.start = start;

    public int Start => start;

    public int Next(int value) => value + start;

    public static int Half(int value) => value / 2;

    public static class Nested
    {
        public static int Third(int value) => value / 3;
    }
}

public static class Spared
{
    public static int Same(int value) => value;
}
