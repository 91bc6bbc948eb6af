using System;
using System.Linq;
using System.Runtime.CompilerServices;
using System.Threading;

/// <summary>Threads that come and go while everything else goes on as well.</summary>
internal static class Crowd
{
    private static readonly object s_gate = new();
    private static int s_worked;

    /// <summary>Starts very short ones, short ones, and some that throw, wait and collect.</summary>
    public static void Run()
    {
        using var over = new ManualResetEventSlim();
        var collector = new Thread(() => Collect(over));
        collector.Start();
        for (int i = 0; i < 40; i++)
        {
            Thread[] threads = [.. Enumerable.Range(0, 8).Select(number => new Thread(() => Work(number * 5)) { Name = "worker" })];
            foreach (Thread thread in threads)
            {
                thread.Start();
            }
            foreach (Thread thread in threads)
            {
                thread.Join();
            }
        }
        over.Set();
        collector.Join();
        Console.WriteLine($"{s_worked} worked");
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void Work(int milliseconds)
    {
        long end = Environment.TickCount64 + milliseconds;
        do
        {
            try
            {
                lock (s_gate)
                {
                    throw new InvalidOperationException(new string('x', 1000));
                }
            }
            catch (InvalidOperationException)
            {
            }
        }
        while (Environment.TickCount64 < end);
        Interlocked.Increment(ref s_worked);
    }

    private static void Collect(ManualResetEventSlim over)
    {
        while (!over.Wait(5))
        {
            GC.Collect();
        }
    }
}
