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

    private Span[] spans = new Span[16];
    private int count;

    internal void Add(Span span)
    {
        if (count == spans.Length)
        {
            MakeRoom();
        }
        spans[count] = span;
        Volatile.Write(ref count, count + 1);
    }

    // Some may have come to it.
    internal IEnumerable<Span> Spans()
    {
        var seen = Volatile.Read(ref count);
        var all = spans;
        for (var index = 0; index < Math.Min(seen, all.Length); index++)
        {
            if (all[index] is { IsQueued: false } span)
            {
                yield return span;
            }
        }
    }

    private void MakeRoom()
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
