using System;
using System.Collections.Generic;
using System.Linq;
using System.Runtime.CompilerServices;
using System.Threading;

/// <summary>Known call chains, and what snapshots make of them. Each is printed as a line: a title, then the
/// frames, innermost first.</summary>
internal static class Chains
{
    private const MethodImplOptions AsWritten = MethodImplOptions.NoInlining | MethodImplOptions.NoOptimization;
    private const int Samples = 50;
    private const int Depth = 5; // of the calls that a throw unwinds

    private static readonly object s_gate = new();
    private static readonly EventWaitHandle s_isInNativeCode = new(false, EventResetMode.ManualReset);
    private static readonly EventWaitHandle s_mayReturn = new(false, EventResetMode.ManualReset);

    /// <summary>Prints the chain of a thread that stays where it is; more lines if it was seen elsewhere.</summary>
    public static void PrintSteady(string title, Target target)
    {
        // A collection takes the thread away from where it is.
        var snapshots = new Snapshot[Samples];
        if (!GC.TryStartNoGCRegion(Samples << 18))
        {
            throw new InvalidOperationException("collections cannot be kept away");
        }
        Thread.Sleep(20); // until it is back
        for (int i = 0; i < Samples; i++)
        {
            snapshots[i] = Sampler.Take(target.Id);
        }
        GC.EndNoGCRegion();
        foreach (string chain in snapshots.Select(Describe).Distinct())
        {
            Console.WriteLine($"{title}: {chain}");
        }
        Console.WriteLine($"suspended {Platform.SuspendCount(target.Id)}");
    }

    /// <summary>The frames, or the status of a snapshot without any.</summary>
    public static string Describe(Snapshot snapshot)
    {
        if (snapshot.Frames is not { Length: > 0 } frames)
        {
            return $"status {snapshot.Status}, no frames";
        }
        var chain = new List<(string Name, int Times)>();
        foreach (string name in Sampler.Names(frames))
        {
            if (chain.Count > 0 && chain[^1].Name == name)
            {
                chain[^1] = (name, chain[^1].Times + 1);
            }
            else
            {
                chain.Add((name, 1));
            }
        }
        return string.Join(" < ", chain.Select(f => f.Times == 1 ? f.Name : $"{f.Name} x{f.Times}"));
    }

    public static void PrintAll()
    {
        using (var target = new Target(Outer))
        {
            PrintSteady("spin", target);
        }
        using (var target = new Target(Sleeping))
        {
            PrintSteady("sleep", target.WhenBlocked());
            target.Wake();
        }
        using (var target = new Target(InNativeCode))
        {
            s_isInNativeCode.WaitOne();
            PrintSteady("native", target);
            s_mayReturn.Set();
        }
        Target locked;
        lock (s_gate)
        {
            locked = new Target(Locked);
            PrintSteady("lock", locked.WhenBlocked());
        }
        locked.Dispose();
        using (var target = new Target(Recursing))
        {
            PrintSteady("recursion", target);
        }
        using (var target = new Target(Generic<string>.Enter))
        {
            PrintSteady("generic", target);
        }
        using (var target = new Target(Throwing))
        {
            PrintThrowing(target);
        }
        Console.WriteLine($"self: {Describe(Sampler.Take(Platform.GetCurrentThreadId()))}");
        var ended = new Target(target => target.Arrive());
        ended.Dispose();
        Console.WriteLine($"ended: {Describe(Sampler.TakeOfEnded(ended.Id))}");
        Console.WriteLine($"unknown: {Describe(Sampler.Take(0xFFFFFFF0))}");
        Console.WriteLine($"no function: {Sampler.Names([0])[0]}");
        Console.WriteLine($"no functions: {Sampler.Names([]).Length}");
    }

    // A thread that throws is often where its stack cannot be walked. What is seen of it has to be one of the
    // stacks that it can have, below what the runtime does at that point.
    private static void PrintThrowing(Target target)
    {
        const string Base = "Chains.Throwing < Target.Run";
        string[] depths = ["", "Chains.Catch", .. Enumerable.Range(1, Depth).Select(Thrown)];
        string[] known = [.. depths.Select(depth => depth == "" ? Base : $"{depth} < {Base}")];
        int complete = 0;
        while (complete < 20)
        {
            Snapshot snapshot = Sampler.Take(target.Id);
            if (snapshot.Status != 0)
            {
                continue;
            }
            string chain = WithoutRuntime(Describe(snapshot));
            if (!known.Contains(chain))
            {
                Console.WriteLine($"throw: {chain}");
            }
            complete += chain == known[^1] ? 1 : 0;
        }
        Console.WriteLine($"throw: {known[^1]}");
        Console.WriteLine($"suspended {Platform.SuspendCount(target.Id)}");

        static string Thrown(int depth) => (depth == 1 ? "Chains.Throw" : $"Chains.Throw x{depth}") + " < Chains.Catch";
    }

    /// <summary>The program's own frames.</summary>
    public static string WithoutRuntime(string chain) =>
        string.Join(" < ", chain.Split(" < ").Where(frame => !frame.StartsWith("System.", StringComparison.Ordinal)));

    [MethodImpl(AsWritten)]
    private static void Outer(Target target) => Inner(target, 7);

    [MethodImpl(AsWritten)]
    private static void Inner(Target target, int number) => Spinning.Spin(target, number);

    private static class Spinning
    {
        [MethodImpl(AsWritten)]
        public static void Spin(Target target, int number)
        {
            target.HasArrived = true;
            while (!target.IsToStop)
            {
                target.Progress += number;
            }
        }
    }

    [MethodImpl(AsWritten)]
    private static void Sleeping(Target target)
    {
        target.HasArrived = true;
        try
        {
            Thread.Sleep(Timeout.Infinite);
        }
        catch (ThreadInterruptedException)
        {
        }
    }

    [MethodImpl(AsWritten)]
    private static void InNativeCode(Target target)
    {
        target.HasArrived = true;
        Platform.SignalObjectAndWait(s_isInNativeCode.SafeWaitHandle, s_mayReturn.SafeWaitHandle, Timeout.Infinite, 0);
    }

    [MethodImpl(AsWritten)]
    private static void Locked(Target target)
    {
        target.HasArrived = true;
        lock (s_gate)
        {
            target.Progress++;
        }
    }

    [MethodImpl(AsWritten)]
    private static void Recursing(Target target) => Descend(target, 9999);

    [MethodImpl(AsWritten)]
    private static void Descend(Target target, int further)
    {
        if (further > 0)
        {
            Descend(target, further - 1);
        }
        else
        {
            Spinning.Spin(target, 1);
        }
    }

    [MethodImpl(AsWritten)]
    private static void Throwing(Target target)
    {
        Catch();
        target.HasArrived = true;
        while (!target.IsToStop)
        {
            Catch();
        }
    }

    [MethodImpl(AsWritten)]
    private static void Catch()
    {
        try
        {
            Throw(Depth - 1);
        }
        catch (InvalidOperationException)
        {
        }
    }

    [MethodImpl(AsWritten)]
    private static void Throw(int further)
    {
        if (further == 0)
        {
            throw new InvalidOperationException("on purpose");
        }
        Throw(further - 1);
    }

    private static class Generic<T>
    {
        [MethodImpl(AsWritten)]
        public static void Enter(Target target) => Generic<Dictionary<int, T>>.Pass<long>(target, 1);

        [MethodImpl(AsWritten)]
        public static void Pass<U>(Target target, U value) => new Nested<U>().Leave(target, value, "text");

        private sealed class Nested<V>
        {
            [MethodImpl(AsWritten)]
            public void Leave<W>(Target target, V value, W other) =>
                Sorted(new List<V> { value, value }, new Ordered<W>(target, other));
        }

        [MethodImpl(AsWritten)]
        private static void Sorted<U, W>(List<U> list, Ordered<W> order) => order.Spin(list);
    }

    private readonly struct Ordered<W>(Target target, W other)
    {
        [MethodImpl(AsWritten)]
        public void Spin<U>(List<U> list) => Spinning.Spin(target, list.Count + (other is null ? 1 : 0));
    }
}
