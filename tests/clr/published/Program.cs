// Refers to the managed library for nothing but the attribute, as most programs do.
using System;
using Corvane.Instrumentation;

#if ALONE
namespace Corvane.Instrumentation
{
    [AttributeUsage(AttributeTargets.Method)]
    internal sealed class TraceAttribute : Attribute
    {
    }
}
#endif

internal static class Program
{
    private static int Main()
    {
        Console.WriteLine($"runtime {Environment.Version}");
        Console.WriteLine(Orders.Total(20, 1.5m));
        return 42;
    }
}

internal static class Orders
{
    [Trace]
    public static decimal Total(int count, decimal price) => count * price;
}
