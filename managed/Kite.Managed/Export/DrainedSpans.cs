using System.Collections.Generic;
using System.Threading;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// What has come together since the last round.
internal sealed class DrainedSpans
{
    internal List<SpanRecord> Spans { get; } = new List<SpanRecord>();

    // For each span the managed number of the thread that ended it. Those of one thread stand in the order of their ends.
    internal List<int> EndedOn { get; } = new List<int>();

    // Whose first spans are among them.
    internal List<Thread> Threads { get; } = new List<Thread>();

    internal void Add(int thread, SpanRing spans)
    {
        for (var count = spans.Count; count > 0; count--)
        {
            EndedOn.Add(thread);
        }
        spans.MoveTo(Spans);
    }

    // One that the queue never had is taken for one that ends on the thread that it began on.
    internal void Add(Span span)
    {
        Spans.Add(new SpanRecord(span));
        EndedOn.Add(span.ThreadId);
    }

    internal void Reverse()
    {
        Spans.Reverse();
        EndedOn.Reverse();
    }

    internal void Clear()
    {
        Spans.Clear();
        EndedOn.Clear();
        Threads.Clear();
    }
}
