using System;
using System.Linq;
using System.Numerics;
using System.Reflection;
using System.Runtime.CompilerServices;

/// <summary>A marked method that is compiled for each instance of its type.</summary>
public static class Generic<TA, TB, TC>
{
    [Corvane.Instrumentation.Trace]
    [MethodImpl(MethodImplOptions.NoInlining)]
    public static int Next(int value) => Unsafe.SizeOf<(TA, TB, TC)>() > 0 ? value + 1 : 0;
}

/// <summary>Instances of <see cref="Generic{TA,TB,TC}"/>, some every time, none of them twice for long.</summary>
internal sealed class Instances
{
    private const int AtOnce = 4;

    private static readonly Type[] arguments =
    [
        typeof(bool), typeof(char), typeof(sbyte), typeof(byte), typeof(short), typeof(ushort), typeof(int),
            typeof(uint), typeof(long),
        typeof(ulong), typeof(float), typeof(double), typeof(decimal), typeof(Guid), typeof(DateTime),
            typeof(TimeSpan), typeof(Half),
        typeof(Int128), typeof(Complex), typeof(Vector3), typeof(Index), typeof(Range), typeof(string), typeof(int[]),
    ];

    private int next;

    public Func<int, int>[] Next() => Enumerable.Range(0, AtOnce).Select(_ => Make(next++)).ToArray();

    private static Func<int, int> Make(int number)
    {
        var count = arguments.Length;
        var type = typeof(Generic<,,>).MakeGenericType(
            arguments[number % count], arguments[number / count % count], arguments[number / count / count % count]);
        return type.GetMethod("Next", BindingFlags.Public | BindingFlags.Static)!.CreateDelegate<Func<int, int>>();
    }
}
