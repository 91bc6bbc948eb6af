// Types of another module than the one whose methods take and return them.
using System;

namespace Elsewhere;

public struct Size
{
    public int Width;
    public int Height;
    public override readonly string ToString() => $"{Width} x {Height}";
}

public struct Pair<TFirst, TSecond>
{
    public TFirst First;
    public TSecond Second;
    public override readonly string ToString() => $"{First} & {Second}";
}

public enum Level : long
{
    Low = -1,
    High = 1L << 40,
}

public class Thing
{
    public struct Part
    {
        public double Weight;
        public override readonly string ToString() => FormattableString.Invariant($"{Weight} kg");
    }

    public override string ToString() => "a thing";
}

public ref struct Window
{
    public Span<int> Content;
}
