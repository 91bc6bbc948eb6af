using System;
using System.Runtime.CompilerServices;
using System.Threading.Tasks;

// Waits for a task, and says when it has begun to. A task that completes just before its caller awaits it keeps nobody
// waiting: on its thread its span may end after the caller's.
internal sealed class Awaited<T> : ICriticalNotifyCompletion
{
    private readonly ConfiguredTaskAwaitable<T>.ConfiguredTaskAwaiter awaiter;
    private readonly Action onAwaited;

    internal Awaited(Task<T> task, bool captures, Action onAwaited)
    {
        awaiter = task.ConfigureAwait(captures).GetAwaiter();
        this.onAwaited = onAwaited;
    }

    public bool IsCompleted => false;

    public Awaited<T> GetAwaiter() => this;

    public T GetResult() => awaiter.GetResult();

    public void OnCompleted(Action next) => UnsafeOnCompleted(next);

    public void UnsafeOnCompleted(Action next)
    {
        awaiter.UnsafeOnCompleted(next);
        onAwaited();
    }
}
