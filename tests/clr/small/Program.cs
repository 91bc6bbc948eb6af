// Calls small methods in hot loops: in a method of this module, in one that is not inlined, in a generic one.
// Tells how often it called each of them, so that a test can compare with what was recorded. Calls none of them if it
// is to be quiet, or only methods that cannot be instrumented.
using System;
using System.Runtime.CompilerServices;
using System.Threading;

Console.WriteLine($"runtime {Environment.Version}");
if (args is ["quiet"])
{
    return 42;
}
if (args is ["refused"])
{
    Refused.First("x");
    Refused.Second(1);
    Refused.Third("x");
    return 42;
}
var sum = 0L;
for (var round = 0; round < 100; round++)
{
    sum += Callers.Loop(20);
    sum += Callers.Once(round);
    sum += Callers.Generic(round);
    sum += Callers.Elsewhere(20);
    Thread.Sleep(round % 25 == 24 ? 300 : 0); // until they are compiled again
}
Console.WriteLine($"sum {sum}");
if (args is ["exit"])
{
    Environment.Exit(42);
}
return 42;

internal static class Refused
{
    [MethodImpl(MethodImplOptions.NoInlining)]
    public static void First<T>(T value)
    {
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    public static void Second<T>(T value)
    {
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    public static void Third(ReadOnlySpan<char> text)
    {
    }
}

internal static class Callers
{
    private static readonly IShape shape = new Square();
    private static readonly Base virtually = new Derived();

    // 2,000 calls of each.
    public static long Loop(int count)
    {
        var sum = 0L;
        for (var i = 0; i < count; i++)
        {
            sum += CallAll(i);
        }
        return sum;
    }

    // 100 calls of each.
    [MethodImpl(MethodImplOptions.NoInlining)]
    public static long Once(int value) => CallAll(value);

    // 100 calls of each.
    public static long Generic<T>(T value) => value is int number ? CallAll(number) : 0;

    [MethodImpl(MethodImplOptions.AggressiveInlining)]
    private static long CallAll(int value)
    {
        var small = new Small(value);
        small += 1;
        small.Property = small.Instance(1);
        Small.Nothing();
        var place = small.Property;
        Small.ByReference(ref place);
        var point = new Point { X = place };
        return Small.Static(point.GetX()) + Small.Eager(value) + Small.Text("text").Length + Small.Wide(value) +
               (Small.Condition(value) ? 1 : 0) + value.Extended() + shape.Sides() + virtually.Virtual();
    }

    // 2,000 calls of each.
    public static long Elsewhere(int count)
    {
        var sum = 0L;
        for (var i = 0; i < count; i++)
        {
            var unmarked = new Elsewhere.Unmarked(i);
            sum += global::Elsewhere.Marked.Twice(i) + unmarked.Start + unmarked.Next(i) +
                   global::Elsewhere.Unmarked.Half(i) + global::Elsewhere.Unmarked.Nested.Third(i) +
                   global::Elsewhere.Spared.Same(i);
        }
        return sum;
    }
}
