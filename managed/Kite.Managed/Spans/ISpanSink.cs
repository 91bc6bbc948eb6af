namespace Corvane.Instrumentation.Spans;

// Is shown what is sampled, on the threads that begin and end it: cheap, bounded, and without an exception.
internal interface ISpanSink
{
    // It has no time yet.
    void OnBegun(Span span);

    void OnEnded(Span span);
}
