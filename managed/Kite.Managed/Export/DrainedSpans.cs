using System.Collections.Generic;
using System.Threading;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// What has come together since the last round.
internal sealed class DrainedSpans
{
    internal List<Span> Spans { get; } = new List<Span>();

    // For each span the managed number of the thread that ended it. Those of one thread stand in the order of their ends.
    internal List<int> EndedOn { get; } = new List<int>();

    // Whose first spans are among them.
    internal List<Thread> Threads { get; } = new List<Thread>();

    internal void Add(int thread, SpanRing spans)
    {
        for (var position = 0; position < spans.Count; position++)
        {
            Spans.Add(spans[position]);
            EndedOn.Add(thread);
        }
    }

    internal void Clear()
    {
        Spans.Clear();
        EndedOn.Clear();
        Threads.Clear();
    }
}
