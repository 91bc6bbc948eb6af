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

    // The last method returns while another thread is in the middle of one.
    [Trace]
    public static void LeaveAThreadBehind()
    {
        using var started = new ManualResetEventSlim();
        new Thread(() => Waits(started)) { IsBackground = true }.Start();
        started.Wait();
    }

    [Trace]
    private static void Waits(ManualResetEventSlim started)
    {
        started.Set();
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
