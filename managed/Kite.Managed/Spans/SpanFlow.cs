using System;
using System.Threading;
using Corvane.Sampling;

namespace Corvane.Instrumentation.Spans;

// The span that the program is in. It follows the program's logical flow, through awaits, tasks and threads.
internal static class SpanFlow
{
    private static readonly AsyncLocal<Span?> current = new AsyncLocal<Span?>();

    internal static Span? Current
    {
        get => current.Value;
        set
        {
            if (SampledOperation.IsWanted)
            {
                SampledOperation.Follow(current.Value, value);
            }
            current.Value = value;
        }
    }

    // What it starts is in no flow. The context afterwards is the very one of before.
    internal static void Suppressed(Action run)
    {
        if (ExecutionContext.IsFlowSuppressed())
        {
            run();
            return;
        }
#if NET
        var context = ExecutionContext.Capture()!;
#endif
        using (ExecutionContext.SuppressFlow())
        {
            run();
        }
#if NET
        ExecutionContext.Restore(context);
#endif
    }
}
