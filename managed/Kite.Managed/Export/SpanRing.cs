using System.Collections.Generic;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// The newest spans, in the order in which they came, up to a limit. One that is lower meanwhile counts when it is
// full. One thread at a time.
internal sealed class SpanRing
{
    private readonly SpanBlocks blocks;
    private SpanBlock? first;
    private SpanBlock? last;
    private int oldest; // in the first block

    internal SpanRing(SpanBlocks blocks, int limit)
    {
        this.blocks = blocks;
        Limit = limit;
    }

    internal int Limit { get; private set; }

    internal int Count { get; private set; }

    internal long Dropped { get; private set; }

    internal void Add(Span span, int limit)
    {
        if (Count == Limit)
        {
            Limit = limit;
            while (Count >= limit)
            {
                Forget();
                Dropped++;
            }
        }
        if (last is not { IsFull: false })
        {
            var block = blocks.Take();
            if (last == null)
            {
                first = block;
            }
            else
            {
                last.Next = block;
            }
            last = block;
        }
        last.Add(new SpanRecord(span));
        Count++;
    }

    // The list has none any more.
    internal void MoveTo(List<SpanRecord> to)
    {
        while (Count > 0)
        {
            to.Add(first![oldest]);
            Forget();
        }
    }

    // The oldest one.
    private void Forget()
    {
        Count--;
        if (++oldest == SpanBlock.Size || Count == 0)
        {
            var block = first!;
            first = block.Next;
            last = first == null ? null : last;
            oldest = 0;
            blocks.Give(block);
        }
    }
}
