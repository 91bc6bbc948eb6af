using System;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// The newest spans, in the order in which they came. It starts small and grows up to a limit. One that is lower
// meanwhile counts when it is full. One thread at a time.
internal sealed class SpanRing
{
    private Span[] spans = new Span[16];
    private int oldest;

    internal SpanRing(int limit) => Limit = limit;

    internal int Limit { get; private set; }

    internal int Count { get; private set; }

    internal long Dropped { get; private set; }

    // In the order in which they came.
    internal Span this[int position] => spans[(oldest + position) % spans.Length];

    internal void Add(Span span, int limit)
    {
        if (Count == Limit)
        {
            Limit = limit;
            while (Count >= limit)
            {
                DropOldest();
            }
        }
        if (Count == spans.Length)
        {
            Grow(Math.Min(Limit, 2 * Count));
        }
        spans[(oldest + Count++) % spans.Length] = span;
    }

    private void DropOldest()
    {
        spans[oldest] = null!;
        oldest = (oldest + 1) % spans.Length;
        Count--;
        Dropped++;
    }

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
