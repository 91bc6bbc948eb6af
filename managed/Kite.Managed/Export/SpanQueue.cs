using System;
using System.Collections.Concurrent;
using System.Collections.Generic;
using System.Threading;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// Where spans wait until they are written. Each thread has a list of its own, which keeps the newest and counts what
// it drops. The thread and the one reader never wait for each other: whoever is about to look into a list takes it
// away, and a thread whose list is gone begins another one.
internal sealed class SpanQueue
{
    // Of one thread.
    internal const int MaxOfThread = 8192;

    // Of all threads whose lists are full: these records stay in memory that is used again.
    internal const int MaxOfFull = 1 << 14;

    // Of one thread where there are very many threads.
    private const int MinOfThread = 64;
    private const int MaxOfAll = 1 << 20;

    // So many are worth a round of the reader before its time.
    private const int Worthwhile = 512;

    [ThreadStatic]
    private static Ring? ring;

    private readonly Action wake;
    private readonly ConcurrentQueue<Ring> arrived = new ConcurrentQueue<Ring>();
    private readonly List<Ring> rings = new List<Ring>();
    private readonly SpanBlocks blocks = new SpanBlocks();
    private readonly OpenSpans left = new OpenSpans(); // of threads that have ended
    private volatile int limit = MaxOfThread;

    // The reader is woken by the first span of a thread, and when there are many.
    internal SpanQueue(Action wake) => this.wake = wake;

    // How many were dropped, and by how many threads. The reader's.
    internal long Dropped { get; private set; }

    internal int DroppingThreads { get; private set; }

    // Threads that the reader looks at.
    internal int Threads => rings.Count;

    internal void OnBegun(Span span) => Mine().Open.Add(span);

    internal void OnEnded(Span span)
    {
        if (Mine().Add(span, limit))
        {
            wake();
        }
    }

    // Moves the spans that there are to the list, which is handed over and emptied whenever it has many, and at the
    // end. What is not its turn yet waits where the newest are kept. One reader at a time.
    internal void Drain(DrainedSpans into, Action write)
    {
        while (arrived.TryDequeue(out var next))
        {
            rings.Add(next);
            into.Threads.Add(next.Thread);
        }
        limit = Limit();
        foreach (var one in rings)
        {
            Drain(one, into);
            WriteFrom(MaxOfThread / 2);
        }
        WriteFrom(1);
        rings.RemoveAll(one => one.IsOver);

        void WriteFrom(int many)
        {
            if (into.Spans.Count >= many)
            {
                write();
                into.Clear();
                limit = Limit();
            }
        }
    }

    // Those that have begun and of which the queue has no record, the latest first. They may end, and get one, at any moment.
    internal List<Span> Open()
    {
        var spans = left.Spans();
        foreach (var one in rings)
        {
            spans.AddRange(one.Open.Spans());
        }
        spans.RemoveAll(span => span.Started == 0);
        spans.Sort((one, other) => other.Started.CompareTo(one.Started));
        return spans;
    }

    // Of those who look, the reader alone.
    private int Limit()
    {
        var full = 0;
        foreach (var one in rings)
        {
            full += one.IsFull() ? 1 : 0;
        }
        var most = Math.Min(MaxOfFull / Math.Max(1, full), MaxOfAll / Math.Max(1, rings.Count));
        return Math.Max(MinOfThread, Math.Min(MaxOfThread, most));
    }

    private Ring Mine()
    {
        var mine = ring;
        if (mine == null || mine.Owner != this)
        {
            ring = mine = new Ring(this);
            arrived.Enqueue(mine);
            wake();
        }
        return mine;
    }

    // Whether the thread has ended is asked first, so that nothing comes in between.
    private void Drain(Ring from, DrainedSpans into)
    {
        from.IsOver = !from.Thread.IsAlive;
        from.WasFull = false;
        if (from.Take() is { } spans)
        {
            into.Add(from.Thread.ManagedThreadId, spans);
            if (spans.Dropped > 0)
            {
                from.WasFull = !from.IsOver;
                Dropped += spans.Dropped;
                DroppingThreads += from.HasDropped ? 0 : 1;
                from.HasDropped = true;
            }
        }
        if (from.IsOver)
        {
            foreach (var span in from.Open.Spans())
            {
                left.Add(span);
            }
        }
    }

    private sealed class Ring
    {
        // In place of the list while the thread has it.
        private static readonly SpanRing taken = new SpanRing(new SpanBlocks(), 0);

        private SpanRing? spans;

        internal Ring(SpanQueue owner) => Owner = owner;

        internal SpanQueue Owner { get; }

        internal Thread Thread { get; } = Thread.CurrentThread;

        // Began on it, and may end on any.
        internal OpenSpans Open { get; } = new OpenSpans();

        // The reader's. Nothing comes from it any more.
        internal bool IsOver { get; set; }

        internal bool HasDropped { get; set; }

        // When the reader looked last.
        internal bool WasFull { get; set; }

        // By the thread alone. Whether there are many now.
        internal bool Add(Span span, int limit)
        {
            var mine = Interlocked.Exchange(ref spans, taken);
            if (mine == null || mine == taken) // no memory was left in the midst of this
            {
                mine = new SpanRing(Owner.blocks, limit);
            }
            mine.Add(span, limit);
            span.IsQueued = true;
            Volatile.Write(ref spans, mine);
            return mine.Count == Math.Min(Worthwhile, mine.Limit / 2);
        }

        // And drops, as far as can be seen from outside.
        internal bool IsFull() => WasFull || Volatile.Read(ref spans) is { Dropped: > 0 };

        // By the reader alone. The thread has it for some nanoseconds at a time.
        internal SpanRing? Take()
        {
            var wait = default(SpinWait);
            for (var attempt = 0; attempt < 100; attempt++)
            {
                var seen = Volatile.Read(ref spans);
                if (seen == null)
                {
                    return null;
                }
                if (seen != taken && Interlocked.CompareExchange(ref spans, null, seen) == seen)
                {
                    return seen;
                }
                wait.SpinOnce();
            }
            return null;
        }
    }
}
