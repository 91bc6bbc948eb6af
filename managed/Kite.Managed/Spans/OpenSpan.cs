using System.Threading;

namespace Corvane.Instrumentation.Spans;

// A span whose call has not returned, and what the call's end has to put back.
internal struct OpenSpan
{
    // Null if the call has none.
    internal Span? Span;

    // The span that the flow was in before.
    internal Span? Before;

    // The program's context before the span began and when it had begun; null where the program suppressed its flow.
    internal ExecutionContext? ContextBefore;
    internal ExecutionContext? Context;

    // The activity that was current before. Activities are objects here, for a trimmed program may lack their class.
    internal object? ActivityBefore;

    internal ISpanConvention? Convention;

    // Only for the convention.
    internal object? Receiver;
}
