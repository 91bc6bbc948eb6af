using System;
using System.Threading;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Conventions;

// Keeps what another convention throws from the program. One that fails three times rests from then on: a trimmed
// program lacks something that it needs.
internal sealed class Guarded : ISpanConvention
{
    private const int MaxFailures = 3;

    private readonly ISpanConvention convention;
    private int failures;

    internal Guarded(ISpanConvention convention) => this.convention = convention;

    public SpanKind Kind => convention.Kind;

    public void Begin(Span span, object? receiver, object?[] arguments)
    {
        if (failures >= MaxFailures)
        {
            return;
        }
        try
        {
            convention.Begin(span, receiver, arguments);
        }
        catch (Exception exception)
        {
            Note(exception);
        }
    }

    public void End(Span span, object? receiver, object?[] arguments, object? result)
    {
        if (failures >= MaxFailures)
        {
            return;
        }
        try
        {
            convention.End(span, receiver, arguments, result);
        }
        catch (Exception exception)
        {
            Note(exception);
        }
    }

    public void Fail(Span span, Exception exception)
    {
        if (failures >= MaxFailures)
        {
            return;
        }
        try
        {
            convention.Fail(span, exception);
        }
        catch (Exception failure)
        {
            Note(failure);
        }
    }

    private void Note(Exception exception)
    {
        if (exception is ThreadInterruptedException)
        {
            Thread.CurrentThread.Interrupt(); // of the program's next wait, which it was meant for
            return;
        }
        failures++;
    }
}
