using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Runtime.CompilerServices;
using System.Threading;
using Corvane.Instrumentation.Recording;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// Brings the spans of the queue to where they go, on a thread of its own that begins with the first one.
internal sealed class Exporter : ISpanSink
{
    // With what a killed process had not written yet, half of what it may lose.
    internal static readonly TimeSpan Interval = TimeSpan.FromMilliseconds(500);

    private static readonly TimeSpan moment = TimeSpan.FromSeconds(1);

    private readonly AutoResetEvent awake = new AutoResetEvent(false);
    private readonly ManualResetEvent done = new ManualResetEvent(false);
    private readonly IReadOnlyList<ISpanTarget> targets;
    private readonly SpanClock clock;
    private readonly Action<string, Action, Action<Exception>> start;
    private int hasSpans;
    private int hasBegun;
    private int hasComplained;
    private volatile bool isClosed; // nobody takes spans away any more
    private DateTime? end;
    private volatile bool isEnding;
    private volatile bool isOver;
    private volatile int rounds; // of the thread
    private volatile bool hasWritten;

    internal Exporter(
        IReadOnlyList<ISpanTarget> targets, SpanClock? clock = null, Action<string, Action, Action<Exception>>? start = null)
    {
        this.targets = targets;
        this.clock = clock ?? SpanClock.OfProcess;
        this.start = start ?? OwnThread.Start;
        Queue = new SpanQueue(Wake);
    }

    internal SpanQueue Queue { get; }

    // Whether there were any spans.
    internal bool HasSpans => Volatile.Read(ref hasSpans) != 0;

    // Whether any were brought to where they go.
    internal bool HasWritten => hasWritten;

    // What nobody takes away would need memory for ever.
    public void OnBegun(Span span)
    {
        if (!isClosed)
        {
            Queue.OnBegun(span);
        }
    }

    public void OnEnded(Span span)
    {
        if (!isClosed)
        {
            Queue.OnEnded(span);
        }
    }

    // What was lost, in one line, or null. Targets have so much time; to give up takes a moment more. Once.
    internal string? End(TimeSpan most)
    {
        if (!HasSpans)
        {
            return null;
        }
        end = DateTime.UtcNow + most;
        isEnding = true;
        Wake();
        var isDone = IsWriting && Wait(done, most + moment);
        var lost = new List<string>();
        foreach (var target in targets)
        {
            if (target.Losses.AtEnd() is { } text)
            {
                lost.Add(text);
            }
        }
        if (Queue.Dropped > 0)
        {
            lost.Add($"{Queue.Dropped} dropped by {Queue.DroppingThreads} threads that made more than could be written");
        }
        if (!IsWriting)
        {
            lost.Add("those that waited, because no thread can write them");
        }
        else if (!isDone)
        {
            lost.Add(FormattableString.Invariant($"some not written within {most.TotalSeconds} s"));
        }
        return lost.Count == 0 ? null : $"lost spans: {string.Join("; ", lost)}";
    }

    // Instead of what an earlier process left, files say that there was nothing. What begins now comes too late.
    internal void EndWithout(string why)
    {
        if (HasSpans)
        {
            return;
        }
        isClosed = true;
        foreach (var target in targets)
        {
            Guard(target, 0, () => target.WriteNothing(why));
        }
    }

    // Brings what is there to where it goes, before its time. False if there was nothing or it took too long.
    internal bool Flush(TimeSpan most)
    {
        if (!HasSpans)
        {
            return false;
        }
        var clock = Stopwatch.StartNew();
        var last = rounds + 2; // the one of now may have been past the queue
        while (rounds < last && !isOver && IsWriting && clock.Elapsed < most)
        {
            awake.Set();
            Thread.Sleep(10);
        }
        return rounds >= last || isOver;
    }

    // What a thread does with a span, without one.
    internal void Rehearse(Span span)
    {
        var drained = new DrainedSpans();
        drained.Add(span);
        foreach (var target in targets)
        {
            target.Write(drained);
            target.End(DateTime.UtcNow);
        }
        var open = Queue.Open();
        open.Add(span);
        WriteOpen(open, drained);
    }

    private bool IsWriting => Volatile.Read(ref hasBegun) != 0 && !isClosed;

    private void Wake()
    {
        Volatile.Write(ref hasSpans, 1);
        if (Volatile.Read(ref hasBegun) == 0 && Interlocked.Exchange(ref hasBegun, 1) == 0)
        {
            Begin();
        }
        awake.Set();
    }

    // A system that has no thread to give now may have one when the next span comes, or at the end.
    private void Begin()
    {
        try
        {
            start("exporter", Run, Fail);
        }
        catch (Exception exception)
        {
            Volatile.Write(ref hasBegun, 0);
            if (Interlocked.Exchange(ref hasComplained, 1) == 0)
            {
                Complaint.Write("spans are not written until there can be a thread for that", exception);
            }
        }
    }

    // A domain that is unloaded ends its threads, also those that have done their work.
    private void Fail(Exception exception)
    {
        if (!isOver)
        {
            isClosed = true;
            Complaint.Write("spans are not written any more", exception);
        }
    }

    [MethodImpl(MethodImplOptions.NoInlining)]
    private void Run()
    {
        try
        {
            RunToTheEnd();
        }
        finally
        {
            done.Set();
        }
    }

    private void RunToTheEnd()
    {
        var drained = new DrainedSpans();
        bool isLast;
        do
        {
            awake.WaitOne(Interval);
            isLast = isEnding;
            clock.Renew();
            Queue.Drain(drained, () => Write(drained));
            if (isLast)
            {
                WriteOpen(Queue.Open(), drained);
            }
            rounds++;
        }
        while (!isLast);
        foreach (var target in targets)
        {
            Guard(target, 0, () => target.End(end ?? DateTime.UtcNow));
        }
        isOver = true;
    }

    // What has not come to the queue, ended or not. What comes to it meanwhile is drained once more, and written once.
    private void WriteOpen(List<Span> open, DrainedSpans drained)
    {
        var missing = new HashSet<ulong>();
        foreach (var span in open)
        {
            missing.Add(span.Id);
        }
        Queue.Drain(drained, () =>
        {
            foreach (var span in drained.Spans)
            {
                missing.Remove(span.Id);
            }
            Write(drained);
        });
        // The outermost first, so that none outlasts what it is in.
        open.Reverse();
        foreach (var span in open)
        {
            if (missing.Remove(span.Id))
            {
                drained.Add(span);
            }
        }
        drained.Reverse();
        if (drained.Spans.Count > 0)
        {
            Write(drained);
        }
    }

    private void Write(DrainedSpans drained)
    {
        foreach (var target in targets)
        {
            Guard(target, drained.Spans.Count, () => target.Write(drained));
        }
        hasWritten = true;
    }

    private static void Guard(ISpanTarget target, int spans, Action action)
    {
        try
        {
            action();
        }
        catch (Exception exception)
        {
            target.Losses.Add(spans, exception);
        }
    }

    // A program may interrupt the thread that ends it. It was meant for a wait of the program's own.
    private static bool Wait(WaitHandle handle, TimeSpan most)
    {
        var clock = Stopwatch.StartNew();
        var isInterrupted = false;
        bool? isSet = null;
        while (isSet == null)
        {
            try
            {
                var rest = most - clock.Elapsed;
                isSet = handle.WaitOne(rest > TimeSpan.Zero ? rest : TimeSpan.Zero);
            }
            catch (ThreadInterruptedException)
            {
                isInterrupted = true;
            }
        }
        if (isInterrupted)
        {
            Thread.CurrentThread.Interrupt();
        }
        return isSet.Value;
    }
}
