// Marked methods that the runtime compiles more than once: tier by tier, in the middle of a loop, and for
// several type arguments. All pass values of the same types, so that they need the same references.
using System;
using System.Runtime.CompilerServices;
using System.Threading;
using Corvane.Instrumentation;

namespace Corvane.Instrumentation
{
    [AttributeUsage(AttributeTargets.Method)]
    internal sealed class TraceAttribute : Attribute
    {
    }
}

internal static class Program
{
    private static int Main(string[] arguments)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        // What numbers are boxed as has to be named in this module.
        Console.WriteLine(typeof(int));
        switch (arguments)
        {
            case ["one"]:
                Console.WriteLine(Methods.Once(1));
                return 42;
            case ["all"]:
                Console.WriteLine(Methods.Once(1));
                Console.WriteLine(CallHot());
                Console.WriteLine(Methods.Loop(2_000_000));
                Console.WriteLine(CallGeneric());
                return 42;
            default:
                return 99;
        }
    }

    private static int CallHot()
    {
        var sum = 0;
        for (var i = 0; i < 400; i++)
        {
            sum += Methods.Hot(i);
            Thread.Sleep(i % 100 == 99 ? 300 : 0); // until it is compiled again
        }
        return sum;
    }

    private static int CallGeneric() =>
        Generic<string>.Size(1) + Generic<object>.Size(2) + Generic<int>.Size(3) + Generic<double>.Size(4) +
        Generic<Guid>.Size(5) + Generic<Generic<string>>.Size(6);
}

internal static class Methods
{
    [Trace]
    [MethodImpl(MethodImplOptions.NoInlining)]
    public static int Once(int value) => value + 1;

    [Trace]
    [MethodImpl(MethodImplOptions.NoInlining)]
    public static int Hot(int value) => value % 3 == 0 ? value : -value;

    [Trace]
    [MethodImpl(MethodImplOptions.NoInlining)]
    public static int Loop(int count)
    {
        var sum = 0;
        for (var i = 0; i < count; i++)
        {
            sum = sum * 31 + i;
        }
        return sum;
    }
}

internal sealed class Generic<T>
{
    [Trace]
    [MethodImpl(MethodImplOptions.NoInlining)]
    public static int Size(int value) => value * Unsafe.SizeOf<T>();
}
