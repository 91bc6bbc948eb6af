using System;
using System.Collections.Generic;
using Corvane.Instrumentation.Export;
using Corvane.Sampling.Platform;

namespace Corvane.Sampling;

// Which threads are to be sampled: those of the process that the filter chooses, but for the library's own.
// A thread is kept open while it is watched, so that its id cannot come to stand for another one. The
// sampler's thread only.
internal sealed class ThreadWatch : IDisposable
{
    private readonly IProcessThreads process;
    private readonly Func<SampledThread, bool>? filter;
    private readonly uint own;
    private readonly Dictionary<uint, WatchedThread> watched = new Dictionary<uint, WatchedThread>();

    internal ThreadWatch(IProcessThreads process, Func<SampledThread, bool>? filter)
    {
        this.process = process;
        this.filter = filter;
        own = process.CurrentId;
    }

    internal List<WatchedThread> Chosen { get; } = new List<WatchedThread>();

    // Looks which threads have come and gone and which names they have now.
    internal void Refresh()
    {
        foreach (var thread in new List<WatchedThread>(watched.Values))
        {
            if (thread.HasEnded)
            {
                watched.Remove(thread.Id);
                thread.Dispose();
            }
        }
        foreach (var id in process.Ids() ?? [])
        {
            if (id != own && !watched.ContainsKey(id) && process.Open(id) is { } open)
            {
                watched.Add(id, new WatchedThread(id, open));
            }
        }
        Chosen.Clear();
        foreach (var thread in watched.Values)
        {
            thread.ReadName();
            if (!OwnThread.IsCalled(thread.Thread.Name) && (filter == null || filter(thread.Thread)))
            {
                Chosen.Add(thread);
            }
        }
    }

    public void Dispose()
    {
        foreach (var thread in watched.Values)
        {
            thread.Dispose();
        }
        watched.Clear();
    }
}

// A thread and its samples.
internal sealed class WatchedThread : IDisposable
{
    // So long it takes at least to know whether a thread is busy: clocks are coarse.
    private static readonly TimeSpan busyPeriod = TimeSpan.FromMilliseconds(200);
    private const double Busy = 0.9;

    private readonly IOpenThread open;
    private readonly StackSums sums = new StackSums();
    private SampledOperation.Slot? slot;
    private TimeSpan? restsSince;
    private ulong timeAtRest;
    private int firstAtRest;
    private int summed;
    private bool hasRun;
    private (TimeSpan Time, TimeSpan Used)? looked;
    private bool isBusy;

    internal WatchedThread(uint id, IOpenThread open)
    {
        this.open = open;
        Thread = new SampledThread(id, null);
    }

    internal uint Id => Thread.Id;

    internal SampledThread Thread { get; private set; }

    // Whether there was a snapshot of it. Else it is none of the runtime's, perhaps.
    internal bool WasSeen { get; set; }

    // At most: the time of its snapshots, and of those that failed.
    internal TimeSpan Stopped { get; set; }

    internal SampleList Samples { get; } = new SampleList();

    // In microseconds, as those of the samples.
    internal long LastLook { get; set; }

    internal bool HasEnded => open.HasEnded;

    internal SampledOperation? Operation => (slot ??= SampledOperation.SlotOf(Id))?.Operation;

    // Whether it has used no processor time for so long that it is to be taken for waiting.
    internal bool Rests(TimeSpan now, ProcessorClock clock)
    {
        if (open.ProcessorTime is not { } time)
        {
            return false;
        }
        if (restsSince == null || time > timeAtRest + clock.Noise)
        {
            hasRun = restsSince != null; // at first it is not known what it did before
            firstAtRest = hasRun ? firstAtRest : Samples.Count;
            restsSince = now;
            timeAtRest = time;
            return false;
        }
        if (hasRun)
        {
            // The last one was taken when it had just run.
            hasRun = false;
            firstAtRest = Samples.Count;
        }
        return now - restsSince >= clock.Grain;
    }

    // Whether it has used nearly all of a processor of late: then it does not wait, whatever its function is called.
    internal bool IsBusy(TimeSpan now)
    {
        if (open.Used is { } used && (looked == null || now - looked.Value.Time >= busyPeriod))
        {
            isBusy = looked is { } before && (used - before.Used).Ticks >= Busy * (now - before.Time).Ticks;
            looked = (now, used);
        }
        return isBusy;
    }

    // What there is so far. What does not change any more is added up once.
    internal ThreadProfile Read(Func<SampledOperation, SampledOperation> standing)
    {
        var settled = Samples.Count - 1;
        if (restsSince != null && !hasRun)
        {
            settled = Math.Min(settled, firstAtRest);
        }
        for (; summed < settled; summed++)
        {
            sums.Add(Samples[summed], Math.Max(0, Samples[summed + 1].Microseconds - Samples[summed].Microseconds));
        }
        sums.Unite(standing);
        return new ThreadProfile(Thread, Samples.Copy(summed), sums.Copy(), summed, LastLook);
    }

    // Those that were taken since it began to rest, while that was not known.
    internal void MarkRest()
    {
        for (; firstAtRest < Samples.Count; firstAtRest++)
        {
            if (Samples[firstAtRest].Stack != null)
            {
                Samples[firstAtRest] = Samples[firstAtRest].Waiting;
            }
        }
    }

    // One that it had is kept: a thread that is just ending has none any more.
    internal void ReadName()
    {
        var name = open.Name;
        if (!string.IsNullOrEmpty(name) && name != Thread.Name)
        {
            Thread = new SampledThread(Id, name);
        }
    }

    public void Dispose() => open.Dispose();
}
