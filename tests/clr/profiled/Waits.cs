using System;
using System.Diagnostics;
using System.Globalization;
using System.IO;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Threading;

/// <summary>A thread that runs for a known share of the time, among threads that wait in several ways.</summary>
internal static class Waits
{
    private const MethodImplOptions AsWritten = MethodImplOptions.NoInlining | MethodImplOptions.NoOptimization;
    private const int Cycles = 5;

    private static int s_sum;

    /// <summary>Appends to a file what the system says: the share of the time in which the thread ran, in percent.</summary>
    [MethodImpl(AsWritten)]
    public static void Run(string file)
    {
        using var over = new ManualResetEvent(false);
        var held = new object();
        Thread[] idle =
        [
            new(() => over.WaitOne()) { Name = "waiter" },
            new(() => Sleep(over)) { Name = "sleeper" },
            new(() => Enter(held)) { Name = "locked" },
        ];
        double share;
        lock (held)
        {
            Array.ForEach(idle, thread => thread.Start());
            var before = ProcessorTime();
            var clock = Stopwatch.StartNew();
            for (int cycle = 0; cycle < Cycles; cycle++)
            {
                Work(300);
                Thread.Sleep(700);
            }
            share = 100 * (ProcessorTime() - before) / clock.Elapsed.TotalMilliseconds;
        }
        over.Set();
        Array.ForEach(idle, thread => thread.Join());
        File.AppendAllText(file, share.ToString(CultureInfo.InvariantCulture) + "\n");
    }

    [MethodImpl(AsWritten)]
    private static void Work(int milliseconds)
    {
        var clock = Stopwatch.StartNew();
        while (clock.ElapsedMilliseconds < milliseconds)
        {
            for (int i = 0; i < 20_000; i++)
            {
                s_sum += i;
            }
        }
    }

    [MethodImpl(AsWritten)]
    private static void Sleep(WaitHandle over)
    {
        while (!over.WaitOne(0))
        {
            Thread.Sleep(400);
        }
    }

    [MethodImpl(AsWritten)]
    private static void Enter(object held)
    {
        lock (held)
        {
            s_sum++;
        }
    }

    // Of this thread, in milliseconds.
    private static double ProcessorTime() =>
        GetThreadTimes(GetCurrentThread(), out _, out _, out long kernel, out long user) ? (kernel + user) / 10_000.0 : 0;

    [DllImport("kernel32.dll")]
    private static extern nint GetCurrentThread();

    [DllImport("kernel32.dll")]
    private static extern bool GetThreadTimes(nint thread, out long made, out long ended, out long kernel, out long user);
}
