// Arguments whose every method counts that it was called, and throws.
using System;
using System.Collections;
using System.Threading;

namespace Kite.Managed.Tests;

public sealed class Hostile : IFormattable, IEnumerable, IComparable
{
    private static int calls;

    public static int Calls => Volatile.Read(ref calls);

    public static Exception Called()
    {
        Interlocked.Increment(ref calls);
        return new InvalidOperationException("code of the program was called");
    }

    public override string ToString() => throw Called();

    public override bool Equals(object? other) => throw Called();

    public override int GetHashCode() => throw Called();

    public string ToString(string? format, IFormatProvider? provider) => throw Called();

    public IEnumerator GetEnumerator() => throw Called();

    public int CompareTo(object? other) => throw Called();
}

public struct HostileValue
{
    public override readonly string ToString() => throw Hostile.Called();

    public override readonly bool Equals(object? other) => throw Hostile.Called();

    public override readonly int GetHashCode() => throw Hostile.Called();
}

public sealed class HostileException() : Exception("as made")
{
    public override string Message => throw Hostile.Called();

    public override string? StackTrace => throw Hostile.Called();

    public override IDictionary Data => throw Hostile.Called();

    public override string ToString() => throw Hostile.Called();
}
