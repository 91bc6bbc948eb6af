using System;
using System.Collections.Generic;
using System.Threading;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// The spans that began on a thread and may not have come to the queue. Those that have are forgotten when there is no room
// for another one, the oldest when there are too many. The thread writes, and whoever looks at the end sees what is there.
internal sealed class OpenSpans
{
    private const int Most = 4096;

    // How often somebody looks again who comes while room is made.
    private const int MostTries = 500;

    private Span[] spans = new Span[16];
    private int count;
    private int changes; // odd while room is made

    internal void Add(Span span)
    {
        if (count == spans.Length)
        {
            MakeRoom();
        }
        spans[count] = span;
        Volatile.Write(ref count, count + 1);
    }

    // Each once. Some may have come to it.
    internal List<Span> Spans()
    {
        var found = new List<Span>();
        var wait = default(SpinWait);
        for (var attempt = 0; attempt < MostTries; attempt++, wait.SpinOnce())
        {
            var before = Volatile.Read(ref changes);
            found.Clear();
            var all = spans;
            var seen = Math.Min(Volatile.Read(ref count), all.Length);
            for (var index = 0; index < seen; index++)
            {
                if (all[index] is { IsQueued: false } span)
                {
                    found.Add(span);
                }
            }
            Thread.MemoryBarrier();
            if (before % 2 == 0 && before == Volatile.Read(ref changes))
            {
                break;
            }
        }
        return found;
    }

    private void MakeRoom()
    {
        Interlocked.Increment(ref changes);
        try
        {
            Forget();
        }
        finally
        {
            Interlocked.Increment(ref changes);
        }
    }

    private void Forget()
    {
        var kept = 0;
        for (var index = 0; index < count; index++)
        {
            if (!spans[index].IsQueued)
            {
                spans[kept++] = spans[index];
            }
        }
        if (kept > Most / 2)
        {
            Array.Copy(spans, kept - (Most / 2), spans, 0, Most / 2);
            kept = Most / 2;
        }
        Array.Clear(spans, kept, spans.Length - kept);
        count = kept;
        if (kept > spans.Length / 2)
        {
            Array.Resize(ref spans, 2 * spans.Length);
        }
    }
}
