namespace Corvane.Instrumentation.Recording;

// One call, as text: nothing that the program passes or returns is kept alive. Guarded by its thread's gate.
internal sealed class Call
{
    private Call? lastChild;

    internal Call(MethodSignature method, string arguments)
    {
        Method = method;
        Arguments = arguments;
    }

    internal MethodSignature Method { get; }

    internal string Arguments { get; }

    // In timestamps; null for a call of which only the end was seen.
    internal long? Started { get; private set; }

    // What stands behind the parenthesis; null for a call that did not end.
    internal string? Outcome { get; private set; }

    // In timestamps; null as long as one of the ends is not known.
    internal long? Elapsed { get; private set; }

    internal Call? FirstChild { get; private set; }

    internal Call? Next { get; private set; }

    internal void Start(long now) => Started = now;

    internal void End(string? outcome, long now)
    {
        Outcome = outcome;
        Elapsed = now - Started;
    }

    internal void Add(Call child)
    {
        if (lastChild == null)
        {
            FirstChild = child;
        }
        else
        {
            lastChild.Next = child;
        }
        lastChild = child;
    }
}
