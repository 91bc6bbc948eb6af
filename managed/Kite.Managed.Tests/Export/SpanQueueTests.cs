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

    private static ulong[] Ids(int count) => Enumerable.Range(1, count).Select(id => (ulong)id).ToArray();

    private static void End(SpanQueue queue, ulong[] ids) => Array.ForEach(ids, id => queue.OnEnded(Spans.Of(id)));

    private SpanQueue NewQueue() => new(() => Interlocked.Increment(ref wakes));

    private static List<ulong> Drain(SpanQueue queue)
    {
        var drained = new DrainedSpans();
        var all = new List<ulong>();
        queue.Drain(drained, () =>
        {
            Assert.Equal(drained.Spans.Count, drained.EndedOn.Count);
            all.AddRange(drained.Spans.Select(span => span.Id));
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
        var ids = Ids(100);
        End(queue, ids[..50]);
        Assert.Equal(ids[..50], Drain(queue));
        Assert.Empty(Drain(queue));
        End(queue, ids[50..]);
        Assert.Equal(ids[50..], Drain(queue));
        Assert.Equal(1, wakes);
        Assert.Equal(0, queue.Dropped);
    }

    [Fact]
    public void AFullQueueKeepsTheNewestAndCountsTheDropped()
    {
        var queue = NewQueue();
        var ids = Ids(SpanQueue.MaxOfThread + 1000);
        End(queue, ids);
        Assert.Equal(ids[1000..], Drain(queue));
        Assert.Equal(1000, queue.Dropped);
        Assert.Equal(1, queue.DroppingThreads);
        Assert.Equal(2, wakes);
        End(queue, ids[..10]);
        Assert.Equal(ids[..10], Drain(queue));
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
            End(queue, Ids(SpanQueue.MaxOfThread));
            Assert.Equal(SpanQueue.MaxOfThread, Drain(queue).Count);
        });
        Assert.Equal(0, queue.Dropped);
    }

    // More than a block of records holds, and less.
    [Theory]
    [InlineData(1)]
    [InlineData(10)]
    public void AFullListThatMayHoldLessDropsItsOldest(int factor)
    {
        var ids = Ids(40 * factor);
        AssertKept(20 * factor, 0);
        AssertKept((20 * factor) + 1, (12 * factor) + 1);
        AssertKept(40 * factor, 30 * factor);

        // Of the first so many.
        void AssertKept(int count, int dropped)
        {
            var ring = new SpanRing(new SpanBlocks(), 20 * factor);
            for (var place = 0; place < count; place++)
            {
                ring.Add(Spans.Of(ids[place]), place < 15 * factor ? 20 * factor : place <= 20 * factor ? 8 * factor : 10 * factor);
            }
            Assert.Equal(dropped, ring.Dropped);
            var kept = new List<SpanRecord>();
            ring.MoveTo(kept);
            Assert.Equal(ids[dropped..count], kept.Select(span => span.Id));
            Assert.Equal(0, ring.Count);
        }
    }

    [Fact]
    public void WhatATakenBackFailureLeftIsNoErrorInARecordOfBefore()
    {
        var span = Spans.Of(1);
        span.Fail("System.IO.IOException", "gone");
        var record = new SpanRecord(span);
        Assert.Equal((true, "System.IO.IOException", "gone"), (record.HasError, record.ErrorType, record.ErrorMessage));
        span.TakeBackFailure();
        Assert.Equal((false, null, null), (record.HasError, record.ErrorType, record.ErrorMessage));
        Assert.False(span.HasError);
    }

    // So that what waits is in memory that collections of garbage have no reason to look at.
    [Fact]
    public void BlocksAreUsedAgainAndKeepNothingAlive()
    {
        var blocks = new SpanBlocks();
        var used = new List<SpanBlock>();
        WeakReference Use()
        {
            var span = Spans.Of(1);
            span.SetAttribute("text", new string('x', 10));
            var block = blocks.Take();
            block.Add(new SpanRecord(span));
            used.Add(block);
            blocks.Give(block);
            return new WeakReference(span.Attributes);
        }
        var values = Enumerable.Range(0, 10).Select(_ => Use()).ToArray();
        Assert.Single(used.Distinct());
        Assert.Equal(0, used[0].Count);
        GC.Collect();
        Assert.DoesNotContain(values, value => value.IsAlive);
    }

    [Fact]
    public void OnlySoManyBlocksAreKept()
    {
        const int Kept = SpanQueue.MaxOfFull / SpanBlock.Size;
        var blocks = new SpanBlocks();
        var taken = Enumerable.Range(0, Kept + 100).Select(_ => blocks.Take()).ToHashSet();
        Assert.Equal(Kept + 100, taken.Count);
        foreach (var block in taken)
        {
            blocks.Give(block);
        }
        Assert.Equal(Kept, Enumerable.Range(0, Kept + 100).Count(_ => taken.Remove(blocks.Take())));
    }

    [Fact]
    public void ABlockIsOneThreadsAtATime()
    {
        var blocks = new SpanBlocks();
        var span = new SpanRecord(Spans.Of(1));
        var torn = 0;
        var threads = Enumerable.Range(0, 8).Select(_ => new Thread(() =>
        {
            for (var round = 0; round < 20_000; round++)
            {
                var (one, other) = (blocks.Take(), blocks.Take());
                one.Add(span);
                other.Add(span);
                Interlocked.Add(ref torn, one == other || one.Count != 1 || other.Count != 1 ? 1 : 0);
                blocks.Give(one);
                blocks.Give(other);
            }
        })).ToArray();
        Array.ForEach(threads, thread => thread.Start());
        Array.ForEach(threads, thread => thread.Join());
        Assert.Equal(0, torn);
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
            foreach (var id in Drain(queue))
            {
                Assert.True(seen.Add(id));
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
            queue.OnEnded(Begin(id));
        }
        var last = Begin(10_000);
        Assert.Equal([last, elsewhere!, first], queue.Open());
        elsewhere!.Ended = 1;
        Assert.Equal([last, elsewhere!, first], queue.Open());
        queue.OnEnded(elsewhere);
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
    public void ASpanTakesNoMemoryInTheQueueThatOneBeforeItHad()
    {
        var queue = NewQueue();
        var span = Spans.Of(1);
        long BytesOfMany()
        {
            var before = GC.GetAllocatedBytesForCurrentThread();
            for (var count = 0; count < 2 * SpanQueue.MaxOfThread; count++)
            {
                queue.OnEnded(span);
            }
            return GC.GetAllocatedBytesForCurrentThread() - before;
        }
        Assert.InRange(BytesOfMany(), SpanQueue.MaxOfThread * 90, SpanQueue.MaxOfThread * 110);
        for (var round = 0; round < 3; round++)
        {
            Assert.Equal(SpanQueue.MaxOfThread, Drain(queue).Count);
            Assert.InRange(BytesOfMany(), 0, 1000);
        }
    }
}
