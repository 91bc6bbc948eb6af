using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Linq;
using System.Linq.Expressions;
using System.Text.Json;
using System.Text.RegularExpressions;
using System.Threading;
using System.Threading.Tasks;

/// <summary>Samples at bad moments: what matters is that everything goes on. Whether a stack could be walked at
/// such a moment is the runtime's affair, but some of each thread have to be.</summary>
internal static class Races
{
    private static int s_samples;

    /// <summary>Threads sampled from where they first can tell who they are until after their end.</summary>
    public static void ThreadsThatComeAndGo(int count)
    {
        var statuses = new Statuses();
        for (int i = 0; i < count; i++)
        {
            uint id = 0;
            TimeSpan work = TimeSpan.FromMilliseconds(0.2 * i);
            var thread = new Thread(() =>
            {
                Volatile.Write(ref id, Platform.GetCurrentThreadId());
                CountFor(work);
            });
            thread.Start();
            while (Volatile.Read(ref id) == 0)
            {
                // A sleep would miss the start.
            }
            for (int sample = 0; sample < 4; sample++)
            {
                statuses.Add(Sampler.Take(id));
            }
            thread.Join();
            if (Sampler.TakeOfEnded(id).Count != 0)
            {
                Console.WriteLine("ended, but it has frames");
            }
        }
        statuses.Print("threads");
    }

    /// <summary>Threads that end while they are sampled, from two samplers at once.</summary>
    public static void ThreadsThatHardlyLive(int count)
    {
        var ids = new uint[8];
        bool isToStop = false;
        Statuses[] statuses = [new(), new()];
        bool AllSample() => statuses.All(own => own.Taken > 0);
        Thread[] samplers = [.. statuses.Select((own, first) => new Thread(() =>
        {
            for (int i = first; !Volatile.Read(ref isToStop); i++)
            {
                uint id = Volatile.Read(ref ids[i % ids.Length]);
                if (id != 0)
                {
                    own.Add(Sampler.Take(id));
                }
            }
        }))];
        foreach (Thread sampler in samplers)
        {
            sampler.Start();
        }
        Thread[] starters = [.. Enumerable.Range(0, ids.Length).Select(own => new Thread(() =>
        {
            for (int i = 0; i < count / ids.Length; i++)
            {
                var thread = new Thread(() => Volatile.Write(ref ids[own], Platform.GetCurrentThreadId()));
                thread.Start();
                thread.Join();
                if (i == 0)
                {
                    // However late the samplers begin: the other threads are there for them.
                    SpinWait.SpinUntil(AllSample, TimeSpan.FromMinutes(1));
                }
            }
        }))];
        foreach (Thread starter in starters)
        {
            starter.Start();
        }
        foreach (Thread starter in starters)
        {
            starter.Join();
        }
        Volatile.Write(ref isToStop, true);
        foreach (Thread sampler in samplers)
        {
            sampler.Join();
        }
        Console.Error.WriteLine($"short-lived: {statuses.Sum(own => own.Taken)} snapshots of {count} threads");
        Console.WriteLine($"short-lived: {(AllSample() ? "sampled" : "never sampled")}");
    }

    private static void CountFor(TimeSpan time)
    {
        long counted = 0;
        for (long start = Stopwatch.GetTimestamp(); Stopwatch.GetElapsedTime(start) < time;)
        {
            for (int i = 0; i < 10_000; i++)
            {
                Volatile.Write(ref counted, counted + 1);
            }
        }
    }

    /// <summary>Two samplers of the same threads, which are also those of each other.</summary>
    public static void TwoSamplers(int count)
    {
        string[] who = ["one", "other", "busy"];
        var statuses = Enumerable.Range(0, 2).Select(_ => who.Select(_ => new Statuses()).ToArray()).ToArray();
        var ids = new uint[3];
        using var ready = new Barrier(2);
        using (var busy = new Target(Busy))
        {
            ids[2] = busy.Id;
            Thread[] samplers = [.. Enumerable.Range(0, 2).Select(own => new Thread(() =>
            {
                ids[own] = Platform.GetCurrentThreadId();
                ready.SignalAndWait();
                for (int i = 0; i < count; i++)
                {
                    Snapshot snapshot = Sampler.Take(ids[i % 3]);
                    statuses[own][i % 3].Add(snapshot);
                    if (snapshot.Frames is not null && Sampler.Names(snapshot.Frames).Contains("?.?"))
                    {
                        Console.WriteLine("a function without a name");
                    }
                }
            }))];
            foreach (Thread sampler in samplers)
            {
                sampler.Start();
            }
            foreach (Thread sampler in samplers)
            {
                sampler.Join();
            }
            ExpectAlive(busy);
        }
        for (int own = 0; own < 2; own++)
        {
            for (int i = 0; i < 3; i++)
            {
                statuses[own][i].Print($"{who[i]} by {who[own]}");
            }
        }
    }

    /// <summary>A thread that may hold the lock of the heap at any moment, of the runtime's or of the system's.</summary>
    public static void Allocating(int count)
    {
        SampleWhileIn(Allocate, count, "allocating");
        SampleWhileIn(AllocateNatively, count, "allocating natively");
    }

    // One thread at a time: more would keep the processors from the sampler.
    private static void SampleWhileIn(Action<Target> code, int count, string title)
    {
        var statuses = new Statuses();
        using (var target = new Target(code))
        {
            for (int i = 0; i < count; i++)
            {
                statuses.Add(Sampler.Take(target.Id));
            }
            ExpectAlive(target);
        }
        statuses.Print(title);
    }

    /// <summary>Threads that the collector stops as well.</summary>
    public static void Collecting(int count)
    {
        string[] who = ["allocating", "busy", "collecting", "sampling"];
        Statuses[] statuses = [.. who.Select(_ => new Statuses())];
        using (var allocating = new Target(Allocate))
        using (var busy = new Target(Busy))
        using (var collecting = new Target(Collect))
        {
            uint[] ids = [allocating.Id, busy.Id, collecting.Id, Platform.GetCurrentThreadId()];
            int collections = GC.CollectionCount(0);
            // A thread that is busy has little time between two collections.
            bool AllWalked() => statuses.All(own => own.Walked > 0);
            for (int i = 0; i < count * ids.Length || GC.CollectionCount(0) - collections < count || !AllWalked(); i++)
            {
                statuses[i % ids.Length].Add(Sampler.Take(ids[i % ids.Length]));
            }
            ExpectAlive(allocating);
            ExpectAlive(busy);
            ExpectAlive(collecting);
        }
        for (int i = 0; i < who.Length; i++)
        {
            statuses[i].Print(who[i]);
        }
    }

    /// <summary>Samples the calling thread from another one from now on, as often as it can, until the program
    /// ends. Whoever samples has to stop by then: a thread that is suspended while the system ends the others
    /// has nobody left to resume it.</summary>
    public static void SampleThisThread()
    {
        uint id = Platform.GetCurrentThreadId();
        bool isToStop = false;
        var sampler = new Thread(() =>
        {
            while (!Volatile.Read(ref isToStop))
            {
                Sampler.Take(id);
                Interlocked.Increment(ref s_samples);
            }
        })
        { IsBackground = true };
        AppDomain.CurrentDomain.ProcessExit += (_, _) =>
        {
            Volatile.Write(ref isToStop, true);
            sampler.Join();
        };
        sampler.Start();
    }

    /// <summary>Has the runtime load and compile a lot while it is sampled.</summary>
    public static void WhileItStarts()
    {
        string json = JsonSerializer.Serialize(new Dictionary<string, int[]> { ["numbers"] = [1, 2, 3] });
        Console.WriteLine(json);
        Console.WriteLine(Regex.Replace("snap-shot", "(?<first>[a-z]+)-(?<second>[a-z]+)", "${second}-${first}", RegexOptions.Compiled));
        Expression<Func<int, int>> square = number => number * number;
        Console.WriteLine(square.Compile()(12));
        Console.WriteLine(Task.Run(() => Enumerable.Range(1, 10).Aggregate((a, b) => a * b)).Result);
        for (int length = 1; Volatile.Read(ref s_samples) <= 10; length++)
        {
            new Regex($"[a-z]{{{length}}}", RegexOptions.Compiled).IsMatch("snap"); // the sampler may have had no turn yet
        }
        Console.WriteLine("start: sampled");
    }

    /// <summary>Is sampled, from two threads, until the program ends.</summary>
    public static void UntilItEnds()
    {
        SampleThisThread();
        SampleThisThread();
        while (Volatile.Read(ref s_samples) < 50)
        {
            Thread.Sleep(1);
        }
        Console.WriteLine("end: sampled");
    }

    /// <summary>Very many snapshots, which must leave nothing behind.</summary>
    public static void Endurance(int count)
    {
        using (var target = new Target(Patient))
        {
            var statuses = new Statuses();
            Sample(2000);
            uint handles = Platform.Handles();
            long memory = UnmanagedMemory();
            Sample(count);
            long moreHandles = (long)Platform.Handles() - handles;
            long moreMemory = UnmanagedMemory() - memory;
            Console.Error.WriteLine($"endurance: {moreHandles} handles and {moreMemory} bytes more");
            Console.WriteLine(moreHandles < 10 ? "handles: same" : $"handles: {moreHandles} more");
            Console.WriteLine(moreMemory < 1_000_000 ? "memory: same" : $"memory: {moreMemory} more");
            statuses.Print("endurance");

            void Sample(int times)
            {
                for (int i = 0; i < times; i++)
                {
                    Snapshot snapshot = Sampler.Take(target.Id);
                    statuses.Add(snapshot);
                    if (i % 100 == 0 && snapshot.Frames is not null)
                    {
                        Sampler.Names(snapshot.Frames);
                    }
                    if (i % 1000 == 0)
                    {
                        ExpectAlive(target);
                    }
                }
                GC.Collect();
            }
        }
    }

    // Without what the collector keeps for later. The middle of some looks: threads that have just ended may still have
    // their stacks.
    private static long UnmanagedMemory()
    {
        var looks = new long[5];
        for (int look = 0; look < looks.Length; look++)
        {
            GC.Collect();
            looks[look] = (long)Platform.Memory() - GC.GetGCMemoryInfo().TotalCommittedBytes;
            Thread.Sleep(100);
        }
        Array.Sort(looks);
        return looks[looks.Length / 2];
    }

    // The thread is not suspended, and goes on.
    private static void ExpectAlive(Target target)
    {
        uint suspended = Platform.SuspendCount(target.Id);
        if (suspended != 0)
        {
            Console.WriteLine($"suspended {suspended} times");
        }
        long progress = Volatile.Read(ref target.Progress);
        while (Volatile.Read(ref target.Progress) == progress)
        {
            Thread.Sleep(1);
        }
    }

    private static void Patient(Target target)
    {
        target.HasArrived = true;
        while (!target.IsToStop)
        {
            target.Progress++;
            Thread.Sleep(20);
        }
    }

    private static void Busy(Target target)
    {
        target.HasArrived = true;
        while (!target.IsToStop)
        {
            target.Progress++;
        }
    }

    private static void Allocate(Target target)
    {
        target.HasArrived = true;
        var kept = new object[1000];
        while (!target.IsToStop)
        {
            kept[target.Progress++ % kept.Length] = new byte[target.Progress % 5000];
        }
    }

    private static void AllocateNatively(Target target)
    {
        target.HasArrived = true;
        while (!target.IsToStop)
        {
            nint memory = Platform.HeapAlloc(Platform.GetProcessHeap(), 0, (nuint)(target.Progress++ % 5000));
            Platform.HeapFree(Platform.GetProcessHeap(), 0, memory);
        }
    }

    private static void Collect(Target target)
    {
        target.HasArrived = true;
        while (!target.IsToStop)
        {
            GC.Collect(target.Progress++ % 10 == 0 ? 2 : 0);
        }
    }

    /// <summary>Counts what snapshots came to.</summary>
    private sealed class Statuses
    {
        private int refused_;

        public int Taken { get; private set; }

        public int Walked { get; private set; }

        public void Add(Snapshot snapshot)
        {
            Taken++;
            Walked += snapshot.Count > 0 ? 1 : 0;
            refused_ += snapshot.Status == 2 ? 1 : 0;
        }

        public void Print(string title)
        {
            Console.Error.WriteLine($"{title}: {Walked} walked, {refused_} refused");
            Console.WriteLine(Walked > 0 ? $"{title}: walked" : $"{title}: none walked, {refused_} refused");
        }
    }
}
