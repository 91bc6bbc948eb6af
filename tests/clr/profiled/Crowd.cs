using System;
using System.Collections.Generic;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Threading;

/// <summary>Threads that come and go while everything else goes on as well.</summary>
internal static class Crowd
{
    private const int Waves = 12;
    private const int Short = 40;
    private const int Long = 4;

    private static readonly nint s_sleep = NativeLibrary.GetExport(NativeLibrary.Load("kernel32.dll"), "Sleep");
    private static int s_worked;
    private static int s_counted;

    /// <summary>Some threads work all the time. In each wave others work for a while and others again end at once,
    /// some of them outside the runtime, which get the ids of those that were here before.</summary>
    public static void Run()
    {
        using var over = new ManualResetEventSlim();
        var collector = new Thread(() => Collect(over)) { Name = "collector" };
        collector.Start();
        List<Thread> staying = [];
        for (int i = 0; i < Long; i++)
        {
            staying.Add(new Thread(() => Work(() => over.IsSet)) { Name = "worker" });
        }
        staying.ForEach(thread => thread.Start());
        for (int wave = 0; wave < Waves; wave++)
        {
            var threads = new List<Thread>();
            for (int i = 0; i < Long + Short; i++)
            {
                int milliseconds = i < Long ? 400 : i % 4;
                long end = Environment.TickCount64 + milliseconds;
                threads.Add(new Thread(() => Work(() => Environment.TickCount64 >= end)));
                threads[^1].Start();
                CloseHandle(CreateThread(0, 0, s_sleep, i, 0, 0));
            }
            threads.ForEach(thread => thread.Join());
        }
        over.Set();
        staying.ForEach(thread => thread.Join());
        collector.Join();
        Console.WriteLine($"{s_worked} worked");
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void Work(Func<bool> isOver)
    {
        do
        {
            Toil();
        }
        while (!isOver());
        Interlocked.Increment(ref s_worked);
    }

    // Allocates, throws and catches; but mostly it counts, for while it throws its stack can hardly ever be walked.
    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void Toil()
    {
        for (int i = 0; i < 5_000_000; i++)
        {
            Volatile.Write(ref s_counted, i);
        }
        try
        {
            throw new InvalidOperationException(new string('x', 1000));
        }
        catch (InvalidOperationException)
        {
        }
    }

    private static void Collect(ManualResetEventSlim over)
    {
        // Nor can it while there is a collection.
        while (!over.Wait(50))
        {
            GC.Collect();
        }
    }

    [DllImport("kernel32.dll")]
    private static extern nint CreateThread(nint attributes, nint stackSize, nint code, nint argument, uint flags, nint id);

    [DllImport("kernel32.dll")]
    private static extern int CloseHandle(nint handle);
}
