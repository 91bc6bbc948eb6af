namespace Corvane.Instrumentation.Spans;

// Takes what ended, on the thread that ends it: cheap, bounded, and without an exception.
internal interface ISpanSink
{
    void OnEnded(Span span);
}
