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
}
