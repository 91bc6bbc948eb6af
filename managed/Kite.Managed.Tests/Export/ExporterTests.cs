// The thread that writes, and its end.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Linq;
using System.Threading;
using Corvane.Instrumentation.Export;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Export;

public class ExporterTests
{
    private sealed class Target : ISpanTarget
    {
        internal List<SpanRecord> Spans { get; } = [];

        internal List<Thread> Threads { get; } = [];

        internal Action? OnWrite { get; init; }

        public Losses Losses { get; } = new("not kept");

        public void Write(DrainedSpans drained)
        {
            OnWrite?.Invoke();
            Spans.AddRange(drained.Spans);
            Threads.AddRange(drained.Threads);
        }

        internal List<string> Reasons { get; } = [];

        public void WriteNothing(string why) => Reasons.Add(why);

        public void End(DateTime until)
        {
        }
    }

    [Fact]
    public void SpansAreWrittenTwiceASecond()
    {
        var target = new Target();
        var exporter = new Exporter([target]);
        Assert.False(exporter.HasSpans);
        exporter.Queue.OnEnded(Spans.Of(1));
        exporter.Queue.OnEnded(Spans.Of(2));
        Assert.True(exporter.HasSpans);
        Assert.True(SpinWait.SpinUntil(() => target.Spans.Count == 2, 30_000));
        Assert.Null(exporter.End(TimeSpan.FromSeconds(600)));
    }

    [Fact]
    public void AThreadIsShownWithItsFirstSpanHoweverLongThatTakes()
    {
        var target = new Target();
        var exporter = new Exporter([target]);
        var span = Spans.Of(1, 1, to: 0);
        exporter.Queue.OnBegun(span);
        Assert.True(exporter.Flush(TimeSpan.FromSeconds(60)));
        Assert.Empty(target.Threads);
        span.Ended = 2;
        exporter.Queue.OnEnded(span);
        Assert.Null(exporter.End(TimeSpan.FromSeconds(600)));
        Assert.Equal([Thread.CurrentThread], target.Threads);
    }

    // In each state that a span can be in while the last ones are written: what waits is taken in the first round, then
    // what is open is looked for, then what waits is taken again.
    [Fact]
    public void ASpanThatEndsWithTheProcessIsWrittenOnce()
    {
        Span[] spans = [Spans.Of(1), Spans.Of(2), Spans.Of(3, to: 0), Spans.Of(4, to: 0), Spans.Of(5, to: 0)];
        Exporter? exporter = null;
        var round = 0;
        var target = new Target
        {
            OnWrite = () =>
            {
                switch (++round)
                {
                    case 1:
                        exporter!.OnEnded(spans[1]); // it will be open, and wait
                        spans[2].Ended = 7; // and is about to wait, for ever
                        break;
                    case 2:
                        spans[3].Ended = 8;
                        exporter!.OnEnded(spans[3]); // too late
                        break;
                }
            },
        };
        var isEnding = false;
        exporter = new Exporter([target], start: (_, run, _) => (isEnding ? new Thread(() => run()) : throw new OutOfMemoryException("too early")).Start());
        Array.ForEach(spans, exporter.OnBegun);
        exporter.OnEnded(spans[0]);
        isEnding = true;
        Assert.Null(exporter.End(TimeSpan.FromSeconds(600)));
        Assert.Equal(3, round);
        Assert.Equal(
            [(1UL, true), (2, true), (3, true), (4, true), (5, false)],
            target.Spans.Select(span => (span.Id, span.Ended != 0)).Order().ToArray());
    }

    [Fact]
    public void WithoutSpansThereIsNoEndToWaitFor()
    {
        var clock = Stopwatch.StartNew();
        Assert.Null(new Exporter([new Target()]).End(TimeSpan.FromSeconds(20)));
        Assert.InRange(clock.Elapsed.TotalSeconds, 0, 10);
    }

    // A system that has no more threads now may have some later.
    [Fact]
    public void AThreadThatCannotStartIsTriedAgain()
    {
        var target = new Target();
        var starts = 0;
        var exporter = new Exporter([target], start: (name, run, fail) =>
        {
            if (++starts < 3)
            {
                throw new OutOfMemoryException("no thread");
            }
            OwnThread.Start(name, run, fail);
        });
        exporter.OnEnded(Spans.Of(1));
        Assert.True(exporter.HasSpans);
        Assert.False(exporter.Flush(TimeSpan.FromSeconds(600)));
        var other = new Thread(() => exporter.OnEnded(Spans.Of(2)));
        other.Start();
        other.Join();
        Assert.Equal(2, starts);
        Assert.Null(exporter.End(TimeSpan.FromSeconds(60)));
        Assert.Equal(3, starts);
        Assert.Equal([1UL, 2UL], target.Spans.Select(span => span.Id).Order());
    }

    [Fact]
    public void WithoutAThreadThereIsNoEndToWaitFor()
    {
        var exporter = new Exporter([new Target()], start: (_, _, _) => throw new OutOfMemoryException("no thread"));
        exporter.OnEnded(Spans.Of(1));
        var clock = Stopwatch.StartNew();
        Assert.Equal("lost spans: those that waited, because no thread can write them", exporter.End(TimeSpan.FromSeconds(600)));
        Assert.InRange(clock.Elapsed.TotalSeconds, 0, 300);
    }

    [Fact]
    public void AThreadThatFailedIsNotWaitedForAndNothingPilesUp()
    {
        Action<Exception> fail = _ => { };
        var exporter = new Exporter([new Target()], start: (_, _, failed) => fail = failed);
        exporter.OnEnded(Spans.Of(1));
        fail(new OutOfMemoryException("broken"));
        exporter.OnBegun(Spans.Of(2, to: 0));
        exporter.OnEnded(Spans.Of(3));
        Assert.False(exporter.Flush(TimeSpan.FromSeconds(600)));
        var clock = Stopwatch.StartNew();
        Assert.Equal("lost spans: those that waited, because no thread can write them", exporter.End(TimeSpan.FromSeconds(600)));
        Assert.InRange(clock.Elapsed.TotalSeconds, 0, 300);
        var waiting = new List<SpanRecord>();
        var drained = new DrainedSpans();
        exporter.Queue.Drain(drained, () => waiting.AddRange(drained.Spans));
        Assert.Equal([1UL], waiting.Select(span => span.Id));
        Assert.Empty(exporter.Queue.Open());
    }

    [Fact]
    public void TargetsAreToldWhyThereWasNothingAndNothingComesBehindThat()
    {
        var (one, other) = (new Target(), new Target());
        var exporter = new Exporter([one, other]);
        exporter.EndWithout("no reason");
        exporter.OnEnded(Spans.Of(1));
        Assert.False(exporter.HasSpans);
        Assert.Null(exporter.End(TimeSpan.FromSeconds(600)));
        Assert.Equal(["no reason", "no reason"], one.Reasons.Concat(other.Reasons));
        Assert.Empty(one.Spans);
    }

    [Fact]
    public void WhereThereAreSpansNobodyIsToldThatThereWereNone()
    {
        var target = new Target();
        var exporter = new Exporter([target]);
        exporter.OnEnded(Spans.Of(1));
        exporter.EndWithout("no reason");
        Assert.Null(exporter.End(TimeSpan.FromSeconds(60)));
        Assert.Empty(target.Reasons);
        Assert.Single(target.Spans);
    }

    [Fact]
    public void ClocksAreReadAgain()
    {
        var minutes = 0L;
        var clock = new SpanClock(() => Interlocked.Read(ref minutes) * 60 * Stopwatch.Frequency, () => DateTime.UnixEpoch);
        var first = clock.Newest;
        minutes = 1;
        var exporter = new Exporter([new Target()], clock);
        exporter.OnEnded(Spans.Of(1));
        Assert.True(exporter.Flush(TimeSpan.FromSeconds(300)));
        Assert.NotSame(first, clock.Newest);
        Assert.Null(exporter.End(TimeSpan.FromSeconds(60)));
    }

    [Fact]
    public void ATargetThatThrowsKeepsNothingFromTheOthers()
    {
        var bad = new Target { OnWrite = () => throw new InvalidOperationException("broken") };
        var good = new Target();
        var exporter = new Exporter([bad, good]);
        exporter.Queue.OnEnded(Spans.Of(1));
        Assert.True(SpinWait.SpinUntil(() => good.Spans.Count == 1, 30_000));
        exporter.Queue.OnEnded(Spans.Of(2));
        exporter.End(TimeSpan.FromSeconds(600));
        Assert.Equal([1UL, 2UL], good.Spans.Select(span => span.Id));
        Assert.Equal(2, bad.Losses.Spans);
    }

    [Fact]
    public void ATargetThatHangsKeepsNobodyWaiting()
    {
        using var never = new ManualResetEventSlim();
        var exporter = new Exporter([new Target { OnWrite = never.Wait }]);
        exporter.Queue.OnEnded(Spans.Of(1));
        var clock = Stopwatch.StartNew();
        Assert.Equal("lost spans: some not written within 0.5 s", exporter.End(TimeSpan.FromSeconds(0.5)));
        Assert.InRange(clock.Elapsed.TotalSeconds, 0.5, 15);
        never.Set();
    }

    [Fact]
    public void AThreadThatIsInterruptedEndsItAllTheSame()
    {
        var target = new Target { OnWrite = () => Thread.Sleep(300) };
        var exporter = new Exporter([target]);
        exporter.Queue.OnEnded(Spans.Of(1));
        var isInterrupted = false;
        var thread = new Thread(() =>
        {
            Thread.CurrentThread.Interrupt();
            exporter.End(TimeSpan.FromSeconds(600));
            try
            {
                Thread.Sleep(0);
                Thread.Sleep(1);
            }
            catch (ThreadInterruptedException)
            {
                isInterrupted = true;
            }
        });
        thread.Start();
        Assert.True(thread.Join(60_000));
        Assert.True(isInterrupted);
        Assert.Single(target.Spans);
    }

    [Fact]
    public void WhatWasDroppedIsSaidAtTheEnd()
    {
        using var isIn = new ManualResetEventSlim();
        using var go = new ManualResetEventSlim();
        var exporter = new Exporter([new Target
        {
            OnWrite = () =>
            {
                isIn.Set();
                go.Wait();
            },
        }]);
        exporter.Queue.OnEnded(Spans.Of(1));
        isIn.Wait();
        for (ulong id = 2; id < SpanQueue.MaxOfThread + 12; id++)
        {
            exporter.Queue.OnEnded(Spans.Of(id));
        }
        go.Set();
        Assert.Equal(
            "lost spans: 10 dropped by 1 threads that made more than could be written", exporter.End(TimeSpan.FromSeconds(600)));
    }
}
