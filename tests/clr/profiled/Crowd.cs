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

    /// <summary>In each wave some threads work for a while; others end at once, some of them outside the runtime,
    /// which get the ids of those that were here before.</summary>
    public static void Run()
    {
        using var over = new ManualResetEventSlim();
        var collector = new Thread(() => Collect(over)) { Name = "collector" };
        collector.Start();
        for (int wave = 0; wave < Waves; wave++)
        {
            var threads = new List<Thread>();
            for (int i = 0; i < Long + Short; i++)
            {
                int milliseconds = i < Long ? 400 : i % 4;
                threads.Add(new Thread(() => Work(milliseconds)) { Name = i < Long ? "worker" : null });
                threads[^1].Start();
                CloseHandle(CreateThread(0, 0, s_sleep, i, 0, 0));
            }
            threads.ForEach(thread => thread.Join());
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
            Toil();
        }
        while (Environment.TickCount64 < end);
        Interlocked.Increment(ref s_worked);
    }

    // Allocates, throws and catches.
    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void Toil()
    {
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
        while (!over.Wait(5))
        {
            GC.Collect();
        }
    }

    [DllImport("kernel32.dll")]
    private static extern nint CreateThread(nint attributes, nint stackSize, nint code, nint argument, uint flags, nint id);

    [DllImport("kernel32.dll")]
    private static extern int CloseHandle(nint handle);
}
