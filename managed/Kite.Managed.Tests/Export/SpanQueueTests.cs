using System;
using System.Collections.Generic;
using System.Linq;
using System.Threading;
using Corvane.Instrumentation.Export;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Export;

public class SpanQueueTests
{
    private int wakes;

    private SpanQueue NewQueue() => new(() => Interlocked.Increment(ref wakes));

    private static List<Span> Drain(SpanQueue queue)
    {
        var drained = new DrainedSpans();
        var all = new List<Span>();
        queue.Drain(drained, () =>
        {
            Assert.Equal(drained.Spans.Count, drained.EndedOn.Count);
            all.AddRange(drained.Spans);
        });
        return all;
    }

    // Each makes so many spans, one lot after each release, and stays.
    private static void OnThreads(SpanQueue queue, int count, int[] lots, Action afterEach)
    {
        using var go = new Barrier(count + 1);
        var threads = Enumerable.Range(0, count).Select(number => new Thread(() =>
        {
            foreach (var lot in lots)
            {
                for (var id = 1; id <= lot; id++)
                {
                    queue.OnEnded(Spans.Of((ulong)id));
                }
                go.SignalAndWait();
                go.SignalAndWait();
            }
        }) { IsBackground = true }).ToArray();
        Array.ForEach(threads, thread => thread.Start());
        foreach (var _ in lots)
        {
            go.SignalAndWait();
            afterEach();
            go.SignalAndWait();
        }
        Array.ForEach(threads, thread => thread.Join());
    }

    [Fact]
    public void SpansComeInTheOrderOfTheirEnds()
    {
        var queue = NewQueue();
        var spans = Enumerable.Range(1, 100).Select(id => Spans.Of((ulong)id)).ToArray();
        Array.ForEach(spans[..50], queue.OnEnded);
        Assert.Equal(spans[..50], Drain(queue));
        Assert.Empty(Drain(queue));
        Array.ForEach(spans[50..], queue.OnEnded);
        Assert.Equal(spans[50..], Drain(queue));
        Assert.Equal(1, wakes);
        Assert.Equal(0, queue.Dropped);
    }

    [Fact]
    public void AFullQueueKeepsTheNewestAndCountsTheDropped()
    {
        var queue = NewQueue();
        var spans = Enumerable.Range(1, SpanQueue.MaxOfThread + 1000).Select(id => Spans.Of((ulong)id)).ToArray();
        Array.ForEach(spans, queue.OnEnded);
        Assert.Equal(spans[1000..], Drain(queue));
        Assert.Equal(1000, queue.Dropped);
        Assert.Equal(1, queue.DroppingThreads);
        Assert.Equal(2, wakes);
        Array.ForEach(spans[..10], queue.OnEnded);
        Assert.Equal(spans[..10], Drain(queue));
        Assert.Equal(1000, queue.Dropped);
    }

    [Fact]
    public void ThreadsWhoseListsAreFullKeepFewerEach()
    {
        const int Threads = 16;
        const int Share = SpanQueue.MaxOfFull / Threads;
        var queue = NewQueue();
        var found = new List<int>();
        OnThreads(queue, Threads, [9000, 3000, 400, 3000], () => found.Add(Drain(queue).Count / Threads));
        Assert.Equal([SpanQueue.MaxOfThread, Share, 400, 3000], found);
        Assert.Equal(Threads * (9000 - SpanQueue.MaxOfThread + 3000 - Share), queue.Dropped);
        Assert.Equal(Threads, queue.DroppingThreads);
    }

    [Fact]
    public void ManyThreadsWhoseListsAreNotFullLoseNothing()
    {
        const int Threads = 64;
        var queue = NewQueue();
        var found = new List<int>();
        OnThreads(queue, Threads, [600, 2000, 6000, 300, 6000], () => found.Add(Drain(queue).Count / Threads));
        Assert.Equal([600, 2000, 6000, 300, 6000], found);
        Assert.Equal(0, queue.Dropped);
    }

    [Fact]
    public void ThreadsThatHaveFewAreNotInTheWayOfOneThatHasMany()
    {
        var queue = NewQueue();
        OnThreads(queue, 100, [100], () =>
        {
            Assert.Equal(10_000, Drain(queue).Count);
            Array.ForEach(Enumerable.Range(1, SpanQueue.MaxOfThread).ToArray(), id => queue.OnEnded(Spans.Of((ulong)id)));
            Assert.Equal(SpanQueue.MaxOfThread, Drain(queue).Count);
        });
        Assert.Equal(0, queue.Dropped);
    }

    [Fact]
    public void AFullListThatMayHoldLessDropsItsOldest()
    {
        var ring = new SpanRing(20);
        Span[] Kept() => Enumerable.Range(0, ring.Count).Select(position => ring[position]).ToArray();
        var spans = Enumerable.Range(1, 40).Select(id => Spans.Of((ulong)id)).ToArray();
        Array.ForEach(spans[..15], span => ring.Add(span, 20));
        Array.ForEach(spans[15..20], span => ring.Add(span, 8));
        Assert.Equal(0, ring.Dropped);
        ring.Add(spans[20], 8);
        Assert.Equal(spans[13..21], Kept());
        Assert.Equal(13, ring.Dropped);
        Array.ForEach(spans[21..], span => ring.Add(span, 10));
        Assert.Equal(spans[30..], Kept());
        Assert.Equal(30, ring.Dropped);
    }

    [Fact]
    public void WhatIsBeingWrittenIsAPartOfWhatThereIs()
    {
        var queue = NewQueue();
        var parts = new List<int>();
        OnThreads(queue, 20, [3000], () =>
        {
            var drained = new DrainedSpans();
            queue.Drain(drained, () => parts.Add(drained.Spans.Count));
            Assert.Empty(drained.Spans);
        });
        Assert.Equal(60_000, parts.Sum());
        Assert.All(parts, part => Assert.InRange(part, 1, 3 * SpanQueue.MaxOfThread / 2));
    }

    [Fact]
    public void ThreadsThatRecordWhileOthersReadLoseNothing()
    {
        const int Threads = 16;
        const int Each = 50_000;
        var queue = NewQueue();
        var threads = Enumerable.Range(0, Threads).Select(number => new Thread(() =>
        {
            for (var id = 0; id < Each; id++)
            {
                queue.OnEnded(Spans.Of((ulong)((number * Each) + id + 1)));
            }
        })).ToArray();
        Array.ForEach(threads, thread => thread.Start());
        var seen = new HashSet<ulong>();
        bool isLast;
        do
        {
            isLast = threads.All(thread => !thread.IsAlive);
            foreach (var span in Drain(queue))
            {
                Assert.True(seen.Add(span.Id));
            }
        }
        while (!isLast);
        Assert.Equal(Threads * Each, seen.Count + queue.Dropped);
        Assert.Equal(0, queue.Threads);
    }

    [Fact]
    public void ThreadsThatComeAndGoLeaveNothingBehind()
    {
        var queue = NewQueue();
        var references = new List<WeakReference>();
        var spans = 0;
        for (var round = 0; round < 100; round++)
        {
            var threads = Enumerable.Range(0, 100).Select(_ => new Thread(() => queue.OnEnded(Spans.Of(1)), 1 << 17)).ToArray();
            Array.ForEach(threads, thread => thread.Start());
            Array.ForEach(threads, thread => thread.Join());
            references.AddRange(threads.Select(thread => new WeakReference(thread)));
            if (round % 10 == 9)
            {
                spans += Drain(queue).Count;
                Assert.Equal(0, queue.Threads);
            }
        }
        Assert.Equal(10_000, spans);
        // The system may take its time to end a thread.
        for (var round = 0; round < 100 && references.Count(reference => reference.IsAlive) > 200; round++)
        {
            Thread.Sleep(10);
            GC.Collect();
            GC.WaitForPendingFinalizers();
        }
        Assert.InRange(references.Count(reference => reference.IsAlive), 0, 200);
    }

    [Fact]
    public void WhatHasNotEndedIsKnownWhereverItBeganAndEnds()
    {
        var queue = NewQueue();
        Span Begin(ulong id)
        {
            var span = Spans.Of(id, (long)id, to: 0);
            queue.OnBegun(span);
            return span;
        }
        var first = Begin(1);
        Span? elsewhere = null;
        var thread = new Thread(() => elsewhere = Begin(2));
        thread.Start();
        thread.Join();
        Assert.Empty(Drain(queue));
        Assert.Equal(1, queue.Threads);
        for (ulong id = 3; id < 10_000; id++)
        {
            Begin(id).Ended = 1;
        }
        var last = Begin(10_000);
        Assert.Equal([last, elsewhere!, first], queue.Open());
        elsewhere!.Ended = 1;
        Assert.Equal([last, first], queue.Open());
    }

    [Fact]
    public void SpansThatNeverEndAreKeptUpToALimit()
    {
        var queue = NewQueue();
        for (ulong id = 1; id <= 100_000; id++)
        {
            queue.OnBegun(Spans.Of(id, (long)id, to: 0));
        }
        Drain(queue);
        var open = queue.Open();
        Assert.InRange(open.Count, 2000, 10_000);
        Assert.Equal(Enumerable.Range(0, open.Count).Select(place => (ulong)(100_000 - place)), open.Select(span => span.Id));
    }

    [Fact]
    public void ASpanTakesFewBytesInTheQueue()
    {
        var queue = NewQueue();
        var span = Spans.Of(1);
        queue.OnEnded(span);
        Drain(queue);
        var before = GC.GetAllocatedBytesForCurrentThread();
        for (var count = 0; count < 8192; count++)
        {
            queue.OnEnded(span);
        }
        // The list doubles, and each size of it is garbage for the next.
        Assert.InRange(GC.GetAllocatedBytesForCurrentThread() - before, 8192 * 8, 8192 * 18);
    }
}
