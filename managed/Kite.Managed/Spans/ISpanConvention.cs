using System;

namespace Corvane.Instrumentation.Spans;

// What is known of a method beyond its name: gives the span of a call its name, kind and attributes. It runs on the
// program's thread, and what it calls is not recorded.
internal interface ISpanConvention
{
    // Of its spans. Known before there is one, for an activity cannot change it. A method of no kind has no spans: only
    // its begin is shown, with the span that it is in.
    SpanKind Kind { get; }

    void Begin(Span span, object? receiver, object?[] arguments);

    // Of a call that returned, and whose task then ran to completion if it returned one. The result is what it returned,
    // boxed; null instead of a value task that may be used only once.
    void End(Span span, object? receiver, object?[] arguments, object? result);

    // An exception is about to leave the call, or its task completed with one.
    void Fail(Span span, Exception exception);
}
