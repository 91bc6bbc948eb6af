using System;
using System.Threading.Tasks.Sources;

// Behind a value task that may be awaited only once: counts who looks at it.
internal sealed class OnceSource : IValueTaskSource<int>, IValueTaskSource
{
    internal int Touches { get; private set; }

    public ValueTaskSourceStatus GetStatus(short token)
    {
        Touches++;
        return ValueTaskSourceStatus.Succeeded;
    }

    public void OnCompleted(Action<object?> continuation, object? state, short token, ValueTaskSourceOnCompletedFlags flags) => Touches++;

    public int GetResult(short token)
    {
        Touches++;
        return 3;
    }

    void IValueTaskSource.GetResult(short token) => Touches++;
}
