// What the themes pass and return.
using System;
using System.Runtime.CompilerServices;

namespace Matrix;

public struct Point
{
    public int X;
    public int Y;

    public Point(int x, int y)
    {
        X = x;
        Y = y;
    }

    public override readonly string ToString() => $"({X}, {Y})";
}

public readonly struct Pair<TFirst, TSecond>
{
    public readonly TFirst First;
    public readonly TSecond Second;

    public Pair(TFirst first, TSecond second)
    {
        First = first;
        Second = second;
    }

    public override string ToString() => $"{First} & {Second}";
}

[InlineArray(4)]
public struct Four
{
    private int first;
    public override readonly string ToString() => "four";
}

public interface INamed
{
    string Name { get; }
}

public class Animal : INamed
{
    public virtual string Name => "animal";
    public override string ToString() => $"the {Name}";
}

public sealed class Dog : Animal
{
    public override string Name => "dog";
}

public class Outer<T>
{
    public class Inner<TInner>
    {
        public T? First;
        public TInner? Second;
        public override string ToString() => $"inner {First} and {Second}";
    }

    public struct Part
    {
        public T? Value;
        public override readonly string ToString() => $"part {Value}";
    }
}

public delegate int Measure(string text);

public enum Colour { Red, Green = 5 }
public enum SByteEnum : sbyte { Lowest = sbyte.MinValue }
public enum ByteEnum : byte { Highest = byte.MaxValue }
public enum ShortEnum : short { Lowest = short.MinValue }
public enum UShortEnum : ushort { Highest = ushort.MaxValue }
public enum UIntEnum : uint { Highest = uint.MaxValue }
public enum LongEnum : long { Lowest = long.MinValue }
public enum ULongEnum : ulong { Highest = ulong.MaxValue }

[Flags]
public enum Sides { None = 0, Left = 1, Right = 2 }

// Injected code boxes primitives as types that the module names. Nothing else makes it name these.
internal static class NamedTypes
{
    public static readonly Type[] All =
    {
        typeof(bool), typeof(char), typeof(sbyte), typeof(byte), typeof(short), typeof(ushort), typeof(int),
        typeof(uint), typeof(long), typeof(ulong), typeof(float), typeof(double), typeof(IntPtr), typeof(UIntPtr),
    };
}
