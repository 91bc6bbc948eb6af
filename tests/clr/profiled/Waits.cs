using System;
using System.Diagnostics;
using System.Globalization;
using System.IO;
using System.Runtime.CompilerServices;
using System.Threading;

/// <summary>A thread that runs for a known share of the time, among threads that wait in several ways.</summary>
internal static class Waits
{
    private const MethodImplOptions AsWritten = MethodImplOptions.NoInlining | MethodImplOptions.NoOptimization;
    private const int Cycles = 5;

    private static int s_sum;

    /// <summary>Appends to a file the shares of the time in which the thread had a processor and in which it had
    /// work, in percent: they differ where other programs are busy.</summary>
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
        double ran;
        double worked = 0;
        double all;
        lock (held)
        {
            Array.ForEach(idle, thread => thread.Start());
            var before = ProcessorTime.OfThread();
            var clock = Stopwatch.StartNew();
            for (int cycle = 0; cycle < Cycles; cycle++)
            {
                double begin = clock.Elapsed.TotalMilliseconds;
                Work(300);
                worked += clock.Elapsed.TotalMilliseconds - begin;
                Thread.Sleep(700);
            }
            all = clock.Elapsed.TotalMilliseconds;
            ran = ProcessorTime.OfThread() - before;
        }
        over.Set();
        Array.ForEach(idle, thread => thread.Join());
        File.AppendAllText(file, string.Create(CultureInfo.InvariantCulture, $"{100 * ran / all}\n{100 * worked / all}\n"));
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
}
