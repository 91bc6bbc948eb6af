// Bodies so small that an optimising compiler puts them into their callers.
using System;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation;

internal interface IShape
{
    int Sides();
}

internal sealed class Square : IShape
{
    [Trace]
    public int Sides() => 4;
}

internal class Base
{
    public virtual int Virtual() => 1;
}

internal sealed class Derived : Base
{
    [Trace]
    public override int Virtual() => 2;
}

internal struct Point
{
    public int X;

    [Trace]
    public readonly int GetX() => X;
}

internal sealed class Small
{
    private int field;

    [Trace]
    public Small(int value) => field = value;

    public int Property
    {
        [Trace]
        get => field;
        [Trace]
        set => field = value;
    }

    [Trace]
    public int Instance(int value) => field + value;

    [Trace]
    public static int Static(int value) => value + 1;

    [Trace]
    public static void Nothing()
    {
    }

    [Trace]
    [MethodImpl(MethodImplOptions.AggressiveInlining)]
    public static int Eager(int value) => value - 1;

    [Trace]
    public static string Text(string value) => value;

    [Trace]
    public static long Wide(long value) => -value;

    [Trace]
    public static void ByReference(ref int value) => value++;

    [Trace]
    public static Small operator +(Small left, int right) => left;

    [Trace]
    public static bool Condition(int value) => value > 0;
}

internal static class Extensions
{
    [Trace]
    public static int Extended(this int value) => value ^ 1;
}
