using System;
using System.Diagnostics;
using System.Reflection;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Recording;

namespace Corvane.Instrumentation.Spans;

// Makes spans of calls, for a sink, and of activities, for whoever listens to ours. The parent of a span is the span
// that the program's logical flow is in, or the program's own activity if that is further inside. Any thread;
// threads share nothing.
internal sealed class SpanRecorder
{
    // Of one method.
    internal const int MostOpenTasks = 16_384;

    private static readonly Func<MethodBase, ISpanConvention?> noConventions = _ => null;

    private readonly RecordedValues values;
    private readonly ISpanSink? sink;
    private readonly RootSampler sampler;
    private readonly Func<MethodBase, ISpanConvention?> conventions;
    private readonly ProgramActivities activities;

    // Without a sink there are spans only while somebody listens to activities. Everything is sampled by default.
    internal SpanRecorder(
        RecordedValues values, ISpanSink? sink, RootSampler? sampler = null,
        Func<MethodBase, ISpanConvention?>? conventions = null, ProgramActivities? activities = null)
    {
        this.values = values;
        this.sink = sink;
        this.sampler = sampler ?? ((_, _) => true);
        this.conventions = conventions ?? noConventions;
        this.activities = activities ?? ProgramActivities.None;
    }

    // As for the recorder as a whole: what a trimmed program lacks is to be found now.
    internal static void Rehearse()
    {
        var spans = new SpanRecorder(RecordedValues.All, new Discard());
        var before = SpanFlow.Current;
        var open = default(OpenSpan);
        spans.Begin(ref open, 0, null, null, []);
        spans.Note(open, new InvalidOperationException());
        spans.TakeBackFailure(open.Span!);
        spans.Return(open, MethodSignature.Of(0, null), [], null, Stopwatch.GetTimestamp());
        SpanFlow.Current = before;
    }

    internal bool IsWanted => sink != null || IsListenedTo;

    internal bool ShowsMessages => values == RecordedValues.All;

    // False as long as the program cannot listen, which takes no call of the platform to see.
    internal bool CanBeWanted => sink != null || activities.MayBeUsable;

    // Is called with what the program's listeners and the conventions throw.
    internal Action<Exception> Failed { get; set; } = _ => { };

    // Runs what ends a span on a thread of the program's, with the same care as the calls.
    internal Action<Action> Guarded { get; set; } = run => run();

    private bool IsListenedTo
    {
        get
        {
#if NET
            return activities.AreUsable && CallActivities.HasListeners;
#else
            return false;
#endif
        }
    }

    // From here on what the platform tells of itself is recorded as well.
    internal void ListenToPlatform(SourceNames sources)
    {
#if NET
        if (sink == null || !activities.AreUsable)
        {
            return;
        }
        try
        {
            new ActivitySpans(sink, sampler, values, sources, Guarded).Begin();
            new RequestEvents(Guarded).Begin();
        }
        catch (Exception exception)
        {
            Complaint.Write("requests and other activities of the platform will not be recorded", exception);
        }
#endif
    }

    // The flow is in the span when this returns, if there is one. Whoever calls it takes the time.
    internal void Begin(ref OpenSpan open, uint index, MethodData? method, object? receiver, object?[] arguments)
    {
        var signature = method?.Signature ?? MethodSignature.Of(index, null);
        if (signature.WorkEnd == WorkEnd.Part)
        {
            return;
        }
        open.Before = SpanFlow.Current;
        var convention = method?.Convention(conventions);
        if (convention is { Kind: SpanKind.None })
        {
            Describe(convention, open.Before ?? Span.None, receiver, arguments);
            return;
        }
        var span = Make(signature, convention?.Kind ?? SpanKind.Internal, ref open);
        if (span == null)
        {
            return;
        }
        span.ThreadId = Environment.CurrentManagedThreadId;
        if (span.IsSampled)
        {
            sink?.OnBegun(span);
        }
        SpanFlow.Current = span;
#if NET
        open.Context = open.ContextBefore == null ? null : ExecutionContext.Capture();
#endif
        if (convention != null)
        {
            open.Convention = convention;
            open.Receiver = receiver;
            Describe(convention, span, receiver, arguments);
        }
        open.Span = span;
    }

    // An exception is about to leave the call.
    internal void Note(in OpenSpan open, Exception? exception)
    {
        Fail(open.Span!, exception?.GetType().ToString(), exception);
        DescribeFailure(open.Convention, open.Span!, exception);
    }

    // It returned after all. Who was shown it may have seen the failure.
    internal void TakeBackFailure(Span span)
    {
        span.TakeBackFailure();
#if NET
        if (span.OwnsActivity)
        {
            CallActivities.TakeBackFailure(span);
        }
#endif
    }

    // The call returned; its work may go on.
    internal void Return(in OpenSpan open, MethodSignature? method, object?[] arguments, object? result, long now)
    {
        var span = open.Span!;
        switch (method?.WorkEnd ?? WorkEnd.Return)
        {
            case WorkEnd.Task when result is Task task:
                Follow(open, method, arguments, task, now);
                return;
            case WorkEnd.ValueTask when result != null:
                if (!TaskOutcome.TryFindTask(result, out var found))
                {
                    span.EndsAtReturn = true;
                    result = null;
                }
                else if (found != null)
                {
                    Follow(open, method, arguments, found, now);
                    return;
                }
                break;
            case WorkEnd.Unknown:
                span.EndsAtReturn = true;
                break;
        }
        DescribeEnd(open.Convention, span, open.Receiver, arguments, result);
        End(open, now);
    }

    // The work of a call is over on the thread that made the call.
    internal void End(in OpenSpan open, long now)
    {
        var span = open.Span!;
        span.Ended = now;
#if NET
        if (span.OwnsActivity)
        {
            var isUntouched = open.Context != null && ExecutionContext.Capture() == open.Context;
            CallActivities.Describe(span);
            CallActivities.Stop(span.Activity!, Failed);
            if (isUntouched)
            {
                ExecutionContext.Restore(open.ContextBefore!);
            }
            else
            {
                SpanFlow.Current = open.Before;
            }
            Show(span);
            return;
        }
#endif
        LeaveFlow(open);
        Show(span);
    }

    // No end of the call was seen, and none will be.
    internal void Lose(Span span, long now)
    {
        span.SetAttribute("corvane.unfinished", true);
        span.Ended = now;
        StopActivity(span);
        Show(span);
    }

    private Span? Make(MethodSignature method, SpanKind kind, ref OpenSpan open)
    {
        var parent = open.Before;
        object? current = null;
#if NET
        current = activities.AreUsable ? CallActivities.Current : null;
        open.ContextBefore = ExecutionContext.Capture();
        open.ActivityBefore = current;
        if (current != null && CallActivities.IsInside(current, parent))
        {
            return MakeInActivity(method, kind, current, parent);
        }
        if (IsListenedTo && CallActivities.Start(method.Name, kind, parent, Failed) is { } activity)
        {
            return Owner(activity, method, kind, parent == null ? IsSampled(CallActivities.TraceOf(activity)) : parent.IsSampled);
        }
#endif
        if (sink == null)
        {
            return null;
        }
        if (parent == null)
        {
            var trace = SpanIds.NewTrace();
            return New(trace, 0, method, kind, IsSampled(trace), current);
        }
        // What is inside a span that is not shown needs none of its own, unless it tells others so.
        return parent.IsSampled || kind == SpanKind.Client ? New(parent.Trace, parent.Id, method, kind, parent.IsSampled, current) : null;
    }

#if NET
    private Span? MakeInActivity(MethodSignature method, SpanKind kind, object current, Span? around)
    {
        var trace = CallActivities.TraceOf(current);
        var isSampled = sink != null &&
            (around != null && around.Trace.Equals(trace) ? around.IsSampled : sampler(trace, CallActivities.Decision(current)));
        if (IsListenedTo && CallActivities.Start(method.Name, kind, null, Failed) is { } activity)
        {
            return Owner(activity, method, kind, isSampled);
        }
        return isSampled ? New(trace, CallActivities.IdOf(current), method, kind, true, current) : null;
    }

    private static Span Owner(object activity, MethodSignature method, SpanKind kind, bool isSampled) =>
        new Span(
            CallActivities.TraceOf(activity), CallActivities.IdOf(activity), CallActivities.ParentOf(activity), method.Name, method.Name,
            Span.CallScope)
        {
            Kind = kind, IsSampled = isSampled, Activity = activity, OwnsActivity = true,
        };
#endif

    private static Span New(TraceId trace, ulong parent, MethodSignature method, SpanKind kind, bool isSampled, object? activity) =>
        new Span(trace, SpanIds.Next(), parent, method.Name, method.Name, Span.CallScope)
        {
            Kind = kind, IsSampled = isSampled, Activity = activity,
        };

    private bool IsSampled(TraceId trace) => sink != null && sampler(trace, null);

    // The span ends when the task has completed, on whatever thread that happens. The task is only continued, without
    // the flow and without a look at its exception, so that the program finds it as it would otherwise. A method may
    // return the same task over and over, which completes at the end of the program: that many are not waited for.
    private void Follow(in OpenSpan open, MethodSignature? method, object?[] arguments, Task task, long now)
    {
        var span = open.Span!;
        if (task.IsCompleted)
        {
            EndTask(span, task, open.Convention, open.Receiver, arguments);
            End(open, now);
            return;
        }
        if (method != null && Interlocked.Increment(ref method.OpenTasks) > MostOpenTasks)
        {
            Interlocked.Decrement(ref method.OpenTasks);
            span.EndsAtReturn = true;
            End(open, now);
            return;
        }
        LeaveFlow(open);
        var (convention, receiver) = (open.Convention, open.Receiver);
        if (convention == null)
        {
            arguments = [];
        }
        SpanFlow.Suppressed(() => task.ContinueWith(
            _ => Guarded(() => Complete(span, method, task, convention, receiver, arguments)),
            CancellationToken.None, TaskContinuationOptions.ExecuteSynchronously, TaskScheduler.Default));
    }

    private void Complete(
        Span span, MethodSignature? method, Task task, ISpanConvention? convention, object? receiver, object?[] arguments)
    {
        if (method != null)
        {
            Interlocked.Decrement(ref method.OpenTasks);
        }
        var now = Stopwatch.GetTimestamp();
        EndTask(span, task, convention, receiver, arguments);
        span.Ended = now;
        StopActivity(span);
        Show(span);
    }

    private void EndTask(Span span, Task task, ISpanConvention? convention, object? receiver, object?[] arguments)
    {
        if (task.Status == TaskStatus.RanToCompletion)
        {
            DescribeEnd(convention, span, receiver, arguments, task);
            return;
        }
        var exception = TaskOutcome.ExceptionOf(task);
        var type = exception?.GetType() ?? (task.IsCanceled ? typeof(TaskCanceledException) : null);
        Fail(span, type?.ToString(), exception);
        DescribeFailure(convention, span, exception);
    }

    private void Fail(Span span, string? type, Exception? exception) =>
        span.Fail(type, exception == null ? null : ValueText.Message(exception, values));

    private void LeaveFlow(in OpenSpan open)
    {
#if NET
        if (open.Context != null && ExecutionContext.Capture() == open.Context)
        {
            // Nothing was put into the context since: this costs nothing, and leaves no trace.
            ExecutionContext.Restore(open.ContextBefore!);
            return;
        }
        if (open.Span!.OwnsActivity)
        {
            CallActivities.Leave(open.Span.Activity!, open.ActivityBefore);
        }
#endif
        SpanFlow.Current = open.Before;
    }

    private void StopActivity(Span span)
    {
#if NET
        if (span.OwnsActivity)
        {
            CallActivities.Describe(span);
            CallActivities.StopElsewhere(span.Activity!, Failed);
        }
#endif
    }

    private void Show(Span span)
    {
        if (span.IsSampled)
        {
            sink?.OnEnded(span);
        }
    }

    private void Describe(ISpanConvention convention, Span span, object? receiver, object?[] arguments)
    {
        try
        {
            convention.Begin(span, receiver, arguments);
        }
        catch (Exception exception)
        {
            Failed(exception);
        }
    }

    private void DescribeEnd(ISpanConvention? convention, Span span, object? receiver, object?[] arguments, object? result)
    {
        if (convention == null)
        {
            return;
        }
        try
        {
            convention.End(span, receiver, arguments, result);
        }
        catch (Exception exception)
        {
            Failed(exception);
        }
    }

    private void DescribeFailure(ISpanConvention? convention, Span span, Exception? exception)
    {
        if (convention == null || exception == null)
        {
            return;
        }
        try
        {
            convention.Fail(span, exception);
        }
        catch (Exception failure)
        {
            Failed(failure);
        }
    }

    private sealed class Discard : ISpanSink
    {
        public void OnBegun(Span span)
        {
        }

        public void OnEnded(Span span)
        {
        }
    }
}
