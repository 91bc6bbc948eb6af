using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Runtime.CompilerServices;
using System.Threading;
using Corvane.Sampling.Platform;

namespace Corvane.Sampling;

// One sampling from start to stop, on the sampler's thread; what it gathered may be read from any thread.
// A thread stands still only inside a call of the profiler, so that between those calls anything may be
// allocated or locked.
internal sealed class SamplingRun
{
    // To list the threads of a large system takes as long as many snapshots: it is done each round if it may,
    // but for no more than this part of the time.
    private const int RefreshShare = 20;
    private const int MostCollections = 10_000;
    private static readonly TimeSpan maxRefreshPeriod = TimeSpan.FromMilliseconds(200);

    private readonly IProfilerExports exports;
    private readonly IProcessThreads process;
    private readonly SamplerOptions options;
    private readonly ProcessorClock processorClock;
    private readonly FunctionTable functions = new FunctionTable();
    private readonly StackTable stacks = new StackTable();
    private readonly OperationTable operations = new OperationTable();
    private readonly SampleClock clock = new SampleClock();
    private readonly List<WatchedThread> sampled = new List<WatchedThread>();
    private readonly SamplingCost cost = new SamplingCost();

    // Around each change of what was gathered. It is not held while a thread stands still.
    private readonly object gathering = new object();

    // Around the reading of what was gathered: functions that one reader is placing are not yet another one's.
    private readonly object reading = new object();
    private readonly List<GarbageCollections> collections = new List<GarbageCollections>();
    private (int All, int Full) collected;
    private double[] buffer = new double[256];
    private int samples;
    private Exception? failure;

    internal SamplingRun(IProfilerExports exports, IProcessThreads process, SamplerOptions options)
    {
        this.exports = exports;
        this.process = process;
        this.options = options;
        processorClock = process.ProcessorClock;
    }

    // On a thread of its own nothing may be thrown, not even for what a trimmed program lacks.
    internal void Run(WaitHandle stop)
    {
        try
        {
            Sample(stop);
        }
        catch (Exception exception)
        {
            failure = exception;
        }
    }

    // What there is so far, or in the end.
    internal Profile Read()
    {
        lock (reading)
        {
            SampledFunction[] functions;
            Profile profile;
            lock (gathering)
            {
                profile = Gathered();
                functions = this.functions.TakeNew();
            }
#if NET
            LoadedTypes.Place(functions);
#endif
            return profile;
        }
    }

    // By whoever writes results while the sampling goes on.
    internal void CountWriting(TimeSpan took)
    {
        lock (gathering)
        {
            cost.Writing += took;
        }
    }

    private Profile Gathered()
    {
        var threads = new List<ThreadProfile>();
        foreach (var thread in sampled)
        {
            threads.Add(thread.Read(operations.StandingIfOver));
        }
        return new Profile(options.Interval, threads, cost.Copy(), failure) { Collections = collections.ToArray() };
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private void Sample(WaitHandle stop)
    {
        var running = Stopwatch.StartNew();
        var working = new Stopwatch();
        try
        {
            using var sharpened = process.SharpenClock();
            using var threads = new ThreadWatch(process, options.Filter);
            var pace = new Pace(options.Interval);
            var refreshDue = TimeSpan.Zero;
            while (!stop.WaitOne(pace.UntilNext(running.Elapsed)))
            {
                working.Start();
                if (running.Elapsed >= refreshDue)
                {
                    var begin = running.Elapsed;
                    threads.Refresh();
                    var took = running.Elapsed - begin;
                    refreshDue = begin + TimeSpan.FromTicks(Math.Min(RefreshShare * took.Ticks, maxRefreshPeriod.Ticks));
                }
                // A filter may have taken its time.
                if (stop.WaitOne(0))
                {
                    break;
                }
                NoteCollections();
                GoThrough(threads.Chosen, running, stop);
                working.Stop();
                Count(running, working, rounds: 1);
            }
        }
        finally
        {
            Count(running, working, rounds: 0);
        }
    }

    // Several since the last round are one mark. Of too many marks two become one.
    private void NoteCollections()
    {
        int all;
        int full;
        do
        {
            all = GC.CollectionCount(0);
            full = GC.CollectionCount(GC.MaxGeneration);
        }
        while (all != GC.CollectionCount(0));
        if (all != collected.All && clock.IsSet)
        {
            lock (gathering)
            {
                collections.Add(new GarbageCollections(clock.Now, all - collected.All, full - collected.Full));
                GarbageCollections.Thin(collections, MostCollections);
            }
        }
        collected = (all, full);
    }

    private void Count(Stopwatch running, Stopwatch working, int rounds)
    {
        lock (gathering)
        {
            cost.Rounds += rounds;
            // In this order: the part is no longer than the whole.
            cost.Besides = working.Elapsed - cost.InSnapshots;
            cost.Duration = running.Elapsed;
        }
    }

    private void GoThrough(List<WatchedThread> threads, Stopwatch running, WaitHandle stop)
    {
        foreach (var thread in threads)
        {
            // What the profiler knows by the id of a thread that has ended is of no use to it.
            if ((thread.Rests(running.Elapsed, processorClock) && (!thread.WasSeen || KeepRest(thread))) || thread.HasEnded)
            {
                continue;
            }
            var snapping = Stopwatch.StartNew();
            var operation = thread.Operation;
            var isTaken = TryTakeSnapshot(thread.Id, out var count, out var microseconds);
            snapping.Stop();
            // From then on there is the stopping to be seen.
            if (stop.WaitOne(0))
            {
                return;
            }
            lock (gathering)
            {
                thread.Stopped += snapping.Elapsed;
                cost.MostStopped = thread.Stopped > cost.MostStopped ? thread.Stopped : cost.MostStopped;
                if (isTaken)
                {
                    thread.WasSeen = true;
                    cost.Snapshots++;
                    clock.Set(microseconds);
                    Keep(thread, count, (long)microseconds, operation, running.Elapsed);
                }
                else if (thread.WasSeen)
                {
                    cost.Missed++;
                    KeepGap(thread);
                }
                else
                {
                    continue; // a thread that was never seen is none of the runtime's, perhaps
                }
                cost.InSnapshots += snapping.Elapsed;
            }
        }
    }

    private void Keep(WatchedThread thread, int count, long microseconds, SampledOperation? operation, TimeSpan now)
    {
        // Beyond the most not even a new stack is stored.
        if (samples == options.MaxSamples)
        {
            cost.Dropped++;
            return;
        }
        if (thread.Samples.Count == 0)
        {
            sampled.Add(thread);
        }
        thread.LastLook = microseconds;
        samples++;
        var stack = stacks.Get(buffer, count, functions);
        if (!functions.Resolve(exports))
        {
            cost.Failed++;
        }
        var isWaiting = stack.Function is { IsWait: true } && !thread.IsBusy(now);
        thread.Samples.Add(new Sample(microseconds, stack, isWaiting, operation: operation));
    }

    // A thread that rests is where it was. False if that is not known.
    private bool KeepRest(WatchedThread thread)
    {
        lock (gathering)
        {
            thread.MarkRest();
            var last = thread.Samples.Count - 1;
            if (last < 0 || thread.Samples[last].Stack == null)
            {
                return false;
            }
            if (samples >= options.MaxSamples)
            {
                cost.Dropped++;
                return true; // or all that is still counted would be waiting
            }
            thread.LastLook = clock.Now;
            if (thread.Samples[last].IsWaiting)
            {
                thread.Samples[last] = thread.Samples[last].OnceMore;
            }
            else
            {
                samples++;
                thread.Samples.Add(new Sample(
                    thread.LastLook, thread.Samples[last].Stack, isWaiting: true, operation: thread.Samples[last].InOperation));
            }
            cost.Rested++;
            return true;
        }
    }

    // One gap, however often the thread is missed in a row.
    private void KeepGap(WatchedThread thread)
    {
        if (samples < options.MaxSamples && thread.Samples[thread.Samples.Count - 1].Stack != null)
        {
            samples++;
            thread.Samples.Add(new Sample(clock.Now, null));
        }
    }

    private bool TryTakeSnapshot(uint thread, out int count, out ulong microseconds)
    {
        try
        {
            return exports.TakeSnapshot(thread, ref buffer, out count, out microseconds) == 0;
        }
        catch (Exception)
        {
            // Whatever it is, it is the profiler's: the next snapshot may succeed.
            cost.Failed++;
            count = 0;
            microseconds = 0;
            return false;
        }
    }

    // The profiler's clock, which tells the time with snapshots only, read between them.
    private sealed class SampleClock
    {
        private readonly Stopwatch since = new Stopwatch();
        private long microseconds;

        internal bool IsSet => since.IsRunning;

        internal long Now => microseconds + since.Elapsed.Ticks / (TimeSpan.TicksPerMillisecond / 1000);

        internal void Set(ulong now)
        {
            microseconds = (long)now;
            since.Restart();
        }
    }
}
