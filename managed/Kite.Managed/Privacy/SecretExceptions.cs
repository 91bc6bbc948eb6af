using System;
using System.Collections.Generic;
using System.Runtime.CompilerServices;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Privacy;

// The exceptions that have left a call which got a secret. A message may quote what the call got, and the exception
// goes on to the callers: so its message is hidden from there on, and that of each exception around it. Any thread;
// nothing of the program is kept alive.
internal static class SecretExceptions
{
    // An exception that has more of them inside is not looked at to the end.
    private const int MostInside = 100;
    private const int FewTasks = 64;

    private static readonly object mark = new object();
    private static readonly ConditionalWeakTable<Exception, object> exceptions = new ConditionalWeakTable<Exception, object>();
    private static readonly ConditionalWeakTable<Task, object> tasks = new ConditionalWeakTable<Task, object>();
    private static readonly List<WeakReference<Task>> open = new List<WeakReference<Task>>();
    private static int mostOpen = FewTasks;

    internal static void Add(Exception exception)
    {
        foreach (var one in WithInner(exception))
        {
            exceptions.GetValue(one, _ => mark);
        }
    }

    // What the task of such a call fails with. A caller that waits for it may be told before whoever continues it.
    internal static void Add(Task task, Action<Action> guarded)
    {
        if (!AddFailure(task))
        {
            tasks.GetValue(task, one => Watch(one, guarded));
        }
    }

    internal static bool Contain(Exception exception)
    {
        lock (open)
        {
            AddFailures();
        }
        var all = WithInner(exception);
        return all.Count > MostInside || all.Exists(one => exceptions.TryGetValue(one, out _));
    }

    private static object Watch(Task task, Action<Action> guarded)
    {
        lock (open)
        {
            if (open.Count >= mostOpen)
            {
                AddFailures();
                mostOpen = Math.Max(FewTasks, 2 * open.Count);
            }
            open.Add(new WeakReference<Task>(task));
        }
        SpanFlow.Suppressed(() => task.ContinueWith(
            ended => guarded(() => AddFailure(ended)), CancellationToken.None, TaskContinuationOptions.ExecuteSynchronously,
            TaskScheduler.Default));
        return mark;
    }

    private static void AddFailures() =>
        open.RemoveAll(reference => !reference.TryGetTarget(out var task) || AddFailure(task));

    // False for a task that goes on.
    private static bool AddFailure(Task task)
    {
        if (!task.IsCompleted)
        {
            return false;
        }
        if (TaskOutcome.ExceptionOf(task) is { } exception)
        {
            Add(exception);
        }
        return true;
    }

    private static List<Exception> WithInner(Exception exception)
    {
        var all = new List<Exception> { exception };
        for (var position = 0; position < all.Count && all.Count <= MostInside; position++)
        {
            if (all[position] is AggregateException several)
            {
                all.AddRange(several.InnerExceptions);
            }
            else if (all[position].InnerException is { } inner)
            {
                all.Add(inner);
            }
        }
        return all;
    }
}
