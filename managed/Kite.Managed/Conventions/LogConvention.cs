using System;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Conventions;

// A method of a logging library at which a line can be given the ids of the span that it is written in. These methods
// have no spans of their own: a line is no operation of the program.
internal sealed class LogConvention : ISpanConvention
{
    internal const string TraceIdName = "TraceId";
    internal const string SpanIdName = "SpanId";

    private readonly Action<object?[], LineIds>? begin;
    private readonly Action<object?, object?[]>? end;

    internal LogConvention(Action<object?[], LineIds>? begin = null, Action<object?, object?[]>? end = null)
    {
        this.begin = begin;
        this.end = end;
    }

    public SpanKind Kind => SpanKind.Internal;

    // The span is that of the library's method: what it is in is what the program is in.
    public void Begin(Span span, object? receiver, object?[] arguments)
    {
        span.IsSampled = false;
        if (span.ParentId != 0)
        {
            begin?.Invoke(arguments, new LineIds(span.Trace, span.ParentId));
        }
    }

    public void End(Span span, object? receiver, object?[] arguments, object? result) => end?.Invoke(receiver, arguments);
}

internal readonly struct LineIds
{
    private readonly TraceId trace;
    private readonly ulong span;

    internal LineIds(TraceId trace, ulong span)
    {
        this.trace = trace;
        this.span = span;
    }

    internal string Trace => trace.ToString();

    internal string Span => SpanId.Text(span);
}
