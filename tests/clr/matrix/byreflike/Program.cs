// Methods whose type parameter a by-ref-like type can take the place of. Every method runs for Span<int> and for
// int: both share its rewritten body, and no code may box what is a Span<int> in one of them.
using System;
using Corvane.Instrumentation;
using static Matrix.Output;

internal static class Program
{
    private const int ExitCode = 42;

    private static int Main()
    {
        Console.WriteLine($"runtime {Environment.Version}");
        int[] numbers = [1, 2, 3];
        Show(Methods.Take<Span<int>>(numbers, "a"));
        Show(Methods.Take(5, "b"));
        Show(Methods.Make<Span<int>>().Length);
        Show(Methods.Make<int>());
        Show(new Holder<Span<int>>().Take(numbers));
        Show(new Holder<int>().Take(6));
        Show(new Holder<Span<int>>().Keep(numbers, 2));
        Show(new Holder<int>().Keep(7, 3));
        Show(new Holder<Span<int>>().Count(4));
        Show(new Holder<int>().Count(5));
        Show(Holder<Span<int>>.Name("c"));
        Show(Holder<int>.Name("d"));
        Catch(() => new Holder<Span<int>>().Fail(6));
        Catch(() => new Holder<int>().Fail(7));
        Show(new Holder<Span<int>>().Pass(new Pair<Span<int>, int> { Second = 8 }, new Couple<Span<int>, int> { Second = 9 }).Second);
        Show(new Holder<int>().Pass(new Pair<int, int> { Second = 10 }, new Couple<int, int> { Second = 11 }).Second);
        Show(new Holder<Span<int>>().PassStack(new Stacked<Span<int>, int> { First = numbers, Second = 12 }));
        Show(new Holder<int>().PassStack(new Stacked<int, int> { First = 13, Second = 14 }));
        Show(new Pair<Span<int>, int> { Second = 15 }.Twice());
        Show(new Pair<int, int> { Second = 16 }.Twice());
        Show(new Stacked<Span<int>, int> { First = numbers, Second = 17 }.Twice());
        Show(new Stacked<int, int> { First = 18, Second = 19 }.Twice());
        Show(((ITaker<Span<int>>)new Taker()).Default(20));
        Show(((ITaker<int>)new Taker()).Default(21));
        Parameter<Span<int>>.Main(numbers);
        Parameter<int>.Main(22);
        Plain<Span<int>>.Main("e");
        Plain<int>.Main("f");
        Entry.Main<Span<int>>(23);
        Entry.Main<int>(24);
        return ExitCode;
    }
}

internal static class Methods
{
    [Trace]
    public static string Take<T>(T value, string text) where T : allows ref struct => text + typeof(T).Name;

    [Trace]
    public static T Make<T>() where T : allows ref struct => default!;
}

// An ordinary struct, whatever its first type argument is.
internal struct Pair<T, TSecond> where T : allows ref struct
{
    public TSecond Second;

    [Trace]
    public readonly string Twice() => $"{typeof(T).Name} {Second} {Second}";
}

internal sealed class Couple<T, TSecond> where T : allows ref struct
{
    public TSecond? Second;
}

internal ref struct Stacked<T, TSecond> where T : allows ref struct
{
    public T First;
    public TSecond Second;

    [Trace]
    public readonly string Twice() => $"{typeof(T).Name} {Second} {Second}";
}

internal sealed class Holder<T> where T : allows ref struct
{
    [Trace]
    public string Take(T value) => typeof(T).Name;

    [Trace]
    public int Keep(scoped T value, int number)
    {
        T kept = value;
        return Length(kept) + number;
    }

    // Values of the type parameter only as locals.
    [Trace]
    public int Count(int number)
    {
        T value = default!;
        T other = value;
        return Length(other) + number;
    }

    [Trace]
    public static string Name(string text) => text + typeof(T).Name;

    [Trace]
    public int Fail(int number)
    {
        T value = default!;
        return number < 0 ? Length(value) : throw new InvalidOperationException($"{typeof(T).Name} {Length(value)}");
    }

    [Trace]
    public Pair<T, int> Pass(Pair<T, int> pair, Couple<T, int> couple) => new() { Second = pair.Second + couple.Second };

    [Trace]
    public int PassStack(Stacked<T, int> stacked) => Length(stacked.First) + stacked.Second;

    internal static int Length(scoped T value) => typeof(T) == typeof(int) ? 100 : 200;
}

internal interface ITaker<T> where T : allows ref struct
{
    [Trace]
    string Default(int number) => typeof(T).Name + number;
}

internal sealed class Taker : ITaker<Span<int>>, ITaker<int>
{
}

// Every static Main is chosen, a generic one as well.
internal static class Parameter<T> where T : allows ref struct
{
    public static void Main(T value) => Console.WriteLine(typeof(T).Name);
}

internal static class Plain<T> where T : allows ref struct
{
    public static void Main(string text)
    {
        T value = default!;
        Console.WriteLine(text + Holder<T>.Length(value));
    }
}

internal static class Entry
{
    public static int Main<T>(int number) where T : allows ref struct => number + typeof(T).Name.Length;
}
