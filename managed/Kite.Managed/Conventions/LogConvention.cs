using System;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Conventions;

// A method of a logging library at which a line can be given the ids of the span that it is written in. These methods
// have no spans of their own: a line is no operation of the program.
internal sealed class LogConvention : ISpanConvention
{
    internal const string TraceIdName = "TraceId";
    internal const string SpanIdName = "SpanId";

    private readonly Action<Span, object?, object?[]> begin;

    internal LogConvention(Action<Span, object?, object?[]> begin) => this.begin = begin;

    public SpanKind Kind => SpanKind.None;

    public void Begin(Span span, object? receiver, object?[] arguments) => begin(span, receiver, arguments);

    public void End(Span span, object? receiver, object?[] arguments, object? result)
    {
    }

    public void Fail(Span span, Exception exception)
    {
    }
}
