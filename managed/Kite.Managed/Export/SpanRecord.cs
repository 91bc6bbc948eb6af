using System.Collections.Generic;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// What is written of a span, as it is now. A value, so that what waits lies in memory that is used again and again: a
// collection of garbage has to copy each object that is new and waits, which took as long as making it.
internal readonly struct SpanRecord
{
    private readonly SpanFailure? failure;

    internal SpanRecord(Span span)
    {
        Trace = span.Trace;
        Id = span.Id;
        ParentId = span.ParentId;
        Name = span.Name;
        Method = span.Method;
        Scope = span.Scope;
        Started = span.Started;
        Ended = span.Ended;
        Attributes = span.Attributes;
        failure = span.Failure;
        ThreadId = span.ThreadId;
        Kind = span.Kind;
        EndsAtReturn = span.EndsAtReturn;
    }

    internal TraceId Trace { get; }

    internal ulong Id { get; }

    internal ulong ParentId { get; }

    internal string Name { get; }

    internal string? Method { get; }

    internal string Scope { get; }

    internal long Started { get; }

    internal long Ended { get; }

    // The span's own: those of an open one may change.
    internal IReadOnlyList<KeyValuePair<string, object>> Attributes { get; }

    internal int ThreadId { get; }

    internal SpanKind Kind { get; }

    internal bool EndsAtReturn { get; }

    internal bool HasError => Failure != null;

    internal string? ErrorType => Failure?.Type;

    internal string? ErrorMessage => Failure?.Message;

    private SpanFailure? Failure => failure is { IsTakenBack: false } ? failure : null;
}
