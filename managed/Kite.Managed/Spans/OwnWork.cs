using System.Threading;

namespace Corvane.Instrumentation.Spans;

// Work of this library that may pass through instrumented methods: what is called between Begin and End is not
// recorded, on whatever thread it goes on.
//     var before = OwnWork.Begin();
//     try { ... } finally { OwnWork.End(before); }
internal static class OwnWork
{
    // Stands for the span that the flow is in.
    private static readonly Span mark = new Span(default, 0, 0, "", null, Span.CallScope) { IsSampled = false };

    private static bool used;

    internal static bool IsCurrent => Volatile.Read(ref used) && SpanFlow.Current == mark;

    internal static Span? Begin()
    {
        Volatile.Write(ref used, true);
        var before = SpanFlow.Current;
        SpanFlow.Current = mark;
        return before;
    }

    internal static void End(Span? before) => SpanFlow.Current = before;
}
