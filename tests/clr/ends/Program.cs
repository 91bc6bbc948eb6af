// Ends in each of the ways in which a process ends, in a call that is open.
using System;
using System.Runtime.InteropServices;
using System.Threading;
using Corvane.Instrumentation;

internal static class Program
{
    private static int Main(string[] arguments)
    {
        Console.WriteLine($"runtime {Environment.Version}");
        Work();
        switch (arguments[0])
        {
            case "return":
                return 42;
            case "exit":
                Environment.Exit(42);
                break;
            case "throw":
                throw new InvalidOperationException("on purpose");
            default:
                BeTold(uint.Parse(arguments[0]));
                break;
        }
        return 1;
    }

    [Trace]
    private static void Work() => Console.WriteLine("working");

    // What a console does: a thread in each of its processes that calls this function of the system. Wine's own console,
    // when it is closed, ends its programs without asking them.
    private static void BeTold(uint happened)
    {
        var routine = NativeLibrary.GetExport(NativeLibrary.Load("kernelbase"), "CtrlRoutine");
        CreateThread(0, 0, routine, (nint)happened, 0, out _);
        Thread.Sleep(TimeSpan.FromMinutes(10));
    }

    [DllImport("kernel32")]
    private static extern nint CreateThread(nint attributes, nuint stack, nint start, nint argument, uint flags, out uint id);
}

namespace Corvane.Instrumentation
{
    [AttributeUsage(AttributeTargets.Method)]
    internal sealed class TraceAttribute : Attribute
    {
    }
}
