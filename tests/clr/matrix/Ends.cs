// Programs that end in the middle of a call.
using System;
using System.Threading;
using Corvane.Instrumentation;

namespace Matrix;

internal static class Ends
{
    public const int ExitCode = 77;

    [Trace]
    public static void Exit()
    {
        Finished(1);
        Environment.Exit(ExitCode);
    }

    [Trace]
    public static void ExitOnAnotherThread()
    {
        var thread = new Thread(() => Unfinished(2));
        thread.Start();
        Thread.Sleep(Timeout.Infinite);
    }

    [Trace] private static int Finished(int number) => number;

    [Trace]
    private static int Unfinished(int number)
    {
        Environment.Exit(ExitCode);
        return number;
    }
}
