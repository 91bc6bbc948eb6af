using System;
using System.Collections;
using System.Runtime.ExceptionServices;
using System.Threading.Tasks;

namespace Corvane.Instrumentation.Spans;

// What a task completed with. The platform's own ways to ask for the exception also note that somebody has seen it,
// and the program would not hear of it any more as one that nobody observed: so it is read where the task keeps it.
internal static class TaskOutcome
{
    private static readonly PrivateField valueTask = new PrivateField("_obj");
    private static readonly PrivateField olderValueTask = new PrivateField("_task");
    private static readonly PrivateField properties = new PrivateField("m_contingentProperties");
    private static readonly PrivateField holder = new PrivateField("m_exceptionsHolder");
    private static readonly PrivateField faults = new PrivateField("m_faultExceptions");
    private static readonly PrivateField cancellation = new PrivateField("m_cancellationException");

    // False if the value task may not be looked at: what it stands for may be used by one caller, once. A task that
    // is null is one that has completed.
    internal static bool TryFindTask(object boxed, out Task? task)
    {
        task = null;
        if (!valueTask.TryRead(boxed, out var source) && !olderValueTask.TryRead(boxed, out source))
        {
            return false;
        }
        task = source as Task;
        return source == null || task != null;
    }

    // The exception that whoever awaits the task would get; null where it is not known.
    internal static Exception? ExceptionOf(Task task)
    {
        if (!properties.TryRead(task, out var kept) || kept == null || !holder.TryRead(kept, out var held) || held == null)
        {
            return null;
        }
        var read = task.IsCanceled ? cancellation : faults;
        return read.TryRead(held, out var found) ? (First(found) as ExceptionDispatchInfo)?.SourceException : null;
    }

    private static object? First(object? found) => found is IList { Count: > 0 } list ? list[0] : found;
}
