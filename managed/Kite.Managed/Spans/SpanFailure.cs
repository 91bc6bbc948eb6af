namespace Corvane.Instrumentation.Spans;

// How an operation failed. Of its own, because few spans have one, and because whoever has a copy of the span has to
// know of it when it is taken back.
internal sealed class SpanFailure
{
    private volatile bool isTakenBack;

    internal SpanFailure(string? type, string? message)
    {
        Type = type;
        Message = message;
    }

    // The full name of the exception's type, where there is one.
    internal string? Type { get; }

    // Null unless CORVANE_VALUES lets it through.
    internal string? Message { get; }

    internal bool IsTakenBack
    {
        get => isTakenBack;
        set => isTakenBack = value;
    }
}
