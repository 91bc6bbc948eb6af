using System;

namespace Corvane.Instrumentation.Export;

// Room for some spans.
internal sealed class SpanBlock
{
    internal const int Size = 32;

    private readonly SpanRecord[] spans = new SpanRecord[Size];

    internal SpanBlock? Next { get; set; }

    internal int Count { get; private set; }

    internal bool IsFull => Count == Size;

    internal ref readonly SpanRecord this[int position] => ref spans[position];

    internal void Add(in SpanRecord span) => spans[Count++] = span;

    // Keeps nothing of the program's alive.
    internal void Clear()
    {
        Array.Clear(spans, 0, Count);
        Count = 0;
        Next = null;
    }
}
