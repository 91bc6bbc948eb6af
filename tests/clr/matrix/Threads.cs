// Calls on several threads, and methods that are called often enough to be compiled anew.
using System;
using System.Linq;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static class Threads
{
    public static void Run()
    {
        Show(Step(0));
        OneAfterTheOther();
        AllAtOnce();
        OnThePool();
        Hot();
    }

    [Trace] private static int Step(int number) => number == 0 ? 0 : Next(number);
    [Trace] private static int Next(int number) => Step(number - 1) + 1;

    private static void OneAfterTheOther()
    {
        Show(Next(1));
        foreach (string name in new[] { "first", "second" })
        {
            var thread = new Thread(() => Show(Step(2))) { Name = name };
            thread.Start();
            thread.Join();
        }
    }

    // All do the same, so that it does not matter which one comes first.
    private static void AllAtOnce()
    {
        const int Count = 3;
        using var barrier = new Barrier(Count);
        Thread[] threads = Enumerable.Range(0, Count).Select(_ => new Thread(() =>
        {
            barrier.SignalAndWait();
            for (int i = 0; i < 3; ++i)
            {
                Step(1);
            }
        })
        {
            Name = "worker",
        }).ToArray();
        foreach (Thread thread in threads)
        {
            thread.Start();
        }
        foreach (Thread thread in threads)
        {
            thread.Join();
        }
    }

    private static void OnThePool() => Show(Task.Factory.StartNew(
        () => Step(1), CancellationToken.None, TaskCreationOptions.LongRunning, TaskScheduler.Default).Result);

    // With time for the runtime to compile it anew in between.
    private static void Hot()
    {
        int sum = 0;
        for (int round = 0; round < 2; ++round)
        {
            for (int i = 0; i < 32; ++i)
            {
                sum += Often(1);
            }
            Thread.Sleep(250);
        }
        Show(sum);
    }

    [Trace]
    private static int Often(int number)
    {
        try
        {
            if (number % 2 == 0)
            {
                return number;
            }
        }
        finally
        {
            ++number;
        }
        return -number;
    }
}
