// Measures, in the process that is sampled: what a snapshot of stacks of three depths costs, and how much
// longer a busy thread takes that is sampled at three intervals. Then what the managed sampler takes of the time, with
// threads that wait but for one. Arguments: snapshots of each depth, rounds.
using System;
using System.Diagnostics;
using System.Globalization;
using System.Linq;
using System.Reflection;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Threading;
using Corvane.Sampling;

internal static unsafe class Program
{
    private const string Profiler = "CorvaneProfiler.dll";
    private const string Probe = "sampling_probe.dll";

    private static readonly int[] s_depths = [10, 100, 1000];
    private static readonly int[] s_intervals = [0, 1, 10, 100]; // in milliseconds; 0 is without samples

    private static int Main(string[] args)
    {
        CultureInfo.CurrentCulture = CultureInfo.InvariantCulture;
        NativeLibrary.SetDllImportResolver(Assembly.GetExecutingAssembly(), (name, _, _) => name switch
        {
            Profiler => NativeLibrary.Load(Environment.GetEnvironmentVariable("CORVANE_PROBE")!),
            Probe => NativeLibrary.Load(Environment.GetEnvironmentVariable("CORECLR_PROFILER_PATH")!),
            _ => 0,
        });
        int snapshots = int.Parse(args[0]);
        int rounds = int.Parse(args[1]);

        Console.WriteLine($"A snapshot of a waiting thread, in us: medians of {snapshots}");
        Console.WriteLine("frames    total  by hand  ratio | start   open suspend context   walk resume    end  array | suspended");
        Measured[] measured = [.. s_depths.Select(depth => MeasureStack(depth, snapshots))];
        foreach (Measured one in measured)
        {
            Console.WriteLine($"{one.Frames,6:F0} {one.Total,8:F1} {one.ByHand,8:F1} {one.Total / one.ByHand,6:F2} |"
                + $"{one.Start,6:F1} {one.Open,6:F1} {one.Suspend,7:F1} {one.Context,7:F1} {one.Walk,6:F1} {one.Resume,6:F1}"
                + $" {one.End,6:F1} {one.Array,6:F1} | {one.Suspended,8:F1}");
        }

        var samplings = new Sampling[s_intervals.Length];
        double[] slowdowns = MeasureSlowdowns(rounds, samplings);
        Console.WriteLine($"A busy thread, sampled: medians of {rounds} rounds");
        for (int i = 1; i < s_intervals.Length; i++)
        {
            Sampling of = samplings[i];
            Console.WriteLine($"every {s_intervals[i],3} ms: {slowdowns[i]:F3} times as long; {of.Taken} snapshots,"
                + $" one in {of.Milliseconds / of.Taken:F1} ms, {of.Walked} of them walked");
        }
        Console.WriteLine("The sampler every 10 ms, one thread busy, the others waiting");
        double alone = MeasureSampler(1);
        double four = MeasureSampler(4);
        double hundred = MeasureSampler(100);
        Console.WriteLine($"sampling: bare={measured[0].Total / measured[0].ByHand:F2}"
            + $" suspended_us={measured[0].Suspended:F1} slowdown_10ms={slowdowns[2]:F3}"
            + $" busy_thread={alone:F3} idle_threads={four:F3} threads100={hundred:F3}");
        return 0;
    }

    // --- Snapshots

    [StructLayout(LayoutKind.Sequential)]
    private struct Measured
    {
        public double Start, Open, Suspend, Context, Walk, Resume, End, Array;
        public double Total;
        public double Suspended;
        public double ByHand;
        public double Frames;
    }

    private static Measured MeasureStack(int frames, int snapshots)
    {
        // Around the frames of the descent lie those of the thread's start and of the wait.
        int others = (int)MeasureThread(0, 10).Frames;
        MeasureThread(frames - others, 10);
        Measured measured = MeasureThread(frames - others, snapshots);
        return measured.Frames == frames
            ? measured
            : throw new InvalidOperationException($"{measured.Frames} frames instead of {frames}");
    }

    private static Measured MeasureThread(int descents, int snapshots)
    {
        using var leave = new ManualResetEvent(false);
        uint id = 0;
        var target = new Thread(() =>
        {
            id = GetCurrentThreadId();
            Descend(descents, leave);
        }, 16 << 20);
        target.Start();
        while ((target.ThreadState & System.Threading.ThreadState.WaitSleepJoin) == 0)
        {
            Thread.Sleep(1);
        }
        Thread.Sleep(50);
        Measured measured;
        if (Measure(id, snapshots, &measured) == 0)
        {
            throw new InvalidOperationException("a snapshot failed, or saw other frames");
        }
        leave.Set();
        target.Join();
        return measured;
    }

    [MethodImpl(MethodImplOptions.NoInlining | MethodImplOptions.NoOptimization)]
    private static void Descend(int further, WaitHandle leave)
    {
        if (further > 0)
        {
            Descend(further - 1, leave);
        }
        else
        {
            leave.WaitOne();
        }
    }

    // --- The managed sampler

    // The part of the time that it takes.
    private static double MeasureSampler(int count)
    {
        using var over = new ManualResetEvent(false);
        var threads = new Thread[count];
        for (int i = 0; i < count; i++)
        {
            ThreadStart work = i == 0 ? () => Spin(over) : () => over.WaitOne();
            threads[i] = new Thread(work) { Name = "measured" };
            threads[i].Start();
        }
        using var sampler = new Sampler(new SamplerOptions { Filter = thread => thread.Name == "measured" });
        sampler.Start();
        Thread.Sleep(3000);
        Profile profile = sampler.Stop();
        over.Set();
        Array.ForEach(threads, thread => thread.Join());
        if (profile.Threads.Count != count)
        {
            throw new InvalidOperationException($"{profile.Threads.Count} threads were sampled instead of {count}");
        }
        int idle = profile.Threads.Where(thread => !Spins(thread)).Sum(thread => thread.Samples.Count);
        Console.WriteLine($"{count,3} threads: {profile}; stopped while idle: {idle}");
        return profile.Cost.Share;
    }

    private static bool Spins(ThreadProfile thread) =>
        thread.Samples.Any(sample => sample.Stack != null && sample.Stack.ToArray().Any(function => function.MethodName == "Spin"));

    [MethodImpl(MethodImplOptions.NoInlining | MethodImplOptions.NoOptimization)]
    private static void Spin(WaitHandle over)
    {
        while (!over.WaitOne(0))
        {
            for (int i = 0; i < 1_000_000; i++)
            {
                s_result += (ulong)i;
            }
        }
    }

    // --- A busy thread

    // What came of the snapshots at one interval.
    private struct Sampling
    {
        public int Taken, Walked;
        public double Milliseconds;
    }

    // By interval. Every round works once without samples, which the others of that round are held against.
    private static double[] MeasureSlowdowns(int rounds, Sampling[] samplings)
    {
        var ratios = new double[s_intervals.Length][];
        for (int i = 0; i < ratios.Length; i++)
        {
            ratios[i] = new double[rounds];
        }
        Sampling none = default;
        WorkSampled(1, ref none);
        for (int round = 0; round < rounds; round++)
        {
            double alone = WorkSampled(0, ref none);
            for (int i = 1; i < ratios.Length; i++)
            {
                ratios[i][round] = WorkSampled(s_intervals[i], ref samplings[i]) / alone;
            }
        }
        if (samplings.Skip(1).Any(sampling => sampling.Walked < 0.9 * sampling.Taken))
        {
            throw new InvalidOperationException("too many snapshots failed for their cost to mean anything");
        }
        return [.. ratios.Select(values => values.Order().ElementAt(rounds / 2))];
    }

    // How long a fixed amount of work takes, in milliseconds.
    private static double WorkSampled(int interval, ref Sampling sampling)
    {
        uint id = GetCurrentThreadId();
        bool isToStop = false;
        int taken = 0;
        int walked = 0;
        var sampler = new Thread(() =>
        {
            while (!Volatile.Read(ref isToStop))
            {
                Thread.Sleep(interval);
                taken++;
                if (TakeSnapshot(id, out double[]? _, out int frames, out ulong _) == 0 && frames > 0)
                {
                    walked++;
                }
            }
        });
        if (interval > 0)
        {
            sampler.Start();
        }
        var clock = Stopwatch.StartNew();
        Work();
        double time = clock.Elapsed.TotalMilliseconds;
        isToStop = true;
        if (interval > 0)
        {
            sampler.Join();
        }
        sampling.Taken += taken;
        sampling.Walked += walked;
        sampling.Milliseconds += time;
        return time;
    }

    private static ulong s_result;

    [MethodImpl(MethodImplOptions.NoInlining | MethodImplOptions.AggressiveOptimization)]
    private static void Work()
    {
        ulong state = 1;
        for (int i = 0; i < 700_000_000; i++)
        {
            state = state * 6364136223846793005 + 1442695040888963407;
        }
        s_result += state;
    }

    [DllImport("kernel32.dll")]
    private static extern uint GetCurrentThreadId();

    [DllImport(Probe)]
    private static extern int Measure(uint osThreadId, int count, Measured* result);

    [DllImport(Profiler)]
    private static extern int TakeSnapshot(uint osThreadId,
        [MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_R8)] out double[]? frames,
        out int frameCount, out ulong timestamp);
}
