using System;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// The newest spans, in the order in which they came. It starts small and grows up to a limit. One thread at a time.
internal sealed class SpanRing
{
    private Span[] spans = new Span[16];
    private int oldest;

    internal int Count { get; private set; }

    internal long Dropped { get; private set; }

    // In the order in which they came.
    internal Span this[int position] => spans[(oldest + position) % spans.Length];

    internal void Add(Span span, int limit)
    {
        if (Count == spans.Length && Count < limit)
        {
            Grow(Math.Min(limit, 2 * Count));
        }
        if (Count < spans.Length)
        {
            spans[(oldest + Count++) % spans.Length] = span;
        }
        else
        {
            spans[oldest] = span;
            oldest = (oldest + 1) % spans.Length;
            Dropped++;
        }
    }

    // Nothing has been dropped yet, so that the oldest is the first one, unless the limit has grown since.
    private void Grow(int size)
    {
        var larger = new Span[size];
        for (var position = 0; position < Count; position++)
        {
            larger[position] = this[position];
        }
        spans = larger;
        oldest = 0;
    }
}
