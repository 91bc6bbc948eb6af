#if NET
using System;
using System.Buffers.Binary;
using System.Diagnostics;
using System.Runtime.CompilerServices;
using System.Threading;
using Corvane.Instrumentation.Export;

namespace Corvane.Instrumentation.Spans;

// The activities of calls, for whoever listens to our source, and their place among the program's own ones. A
// trimmed program may lack the class: nothing here is called then, and activities are objects elsewhere.
internal static class CallActivities
{
    // 00-trace-span-flags, in hexadecimal digits.
    private const int LengthOfId = 55;

    private static readonly ActivitySource source = new ActivitySource(Span.CallScope, Resource.LibraryVersion);

    // Not inlined: who asks must not have the activities loaded.
    internal static bool HasListeners
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        get => source.HasListeners();
    }

    // One of ours that has ended may become current again: with the end of an activity that the call began and left open.
    // What was current before ours takes its place.
    internal static object? Current
    {
        get
        {
            var current = Activity.Current;
            if (current is { IsStopped: true } && current.Source == source)
            {
                for (; current is { IsStopped: true } && current.Source == source; current = current.Parent)
                {
                }
                Activity.Current = current;
            }
            return current;
        }
    }

    // Whether the program's current activity began inside the span: it is then what the next operation is in.
    internal static bool IsInside(object current, Span? span)
    {
        var activity = (Activity)current;
        if (activity.IdFormat != ActivityIdFormat.W3C || activity.IsStopped)
        {
            return false;
        }
        return span == null || (activity != span.Activity && !IsAround(activity, (Activity?)span.Activity));
    }

    internal static TraceId TraceOf(object activity) => TraceOf(((Activity)activity).TraceId);

    internal static TraceId TraceOf(ActivityTraceId id)
    {
        System.Span<byte> bytes = stackalloc byte[16];
        id.CopyTo(bytes);
        return new TraceId(BinaryPrimitives.ReadUInt64BigEndian(bytes), BinaryPrimitives.ReadUInt64BigEndian(bytes[8..]));
    }

    internal static ulong IdOf(object activity) => Number(((Activity)activity).SpanId);

    internal static ulong ParentOf(object activity) => Number(((Activity)activity).ParentSpanId);

    internal static ActivityTraceId TraceIdOf(Span span)
    {
        System.Span<byte> bytes = stackalloc byte[16];
        BinaryPrimitives.WriteUInt64BigEndian(bytes, span.Trace.High);
        BinaryPrimitives.WriteUInt64BigEndian(bytes[8..], span.Trace.Low);
        return ActivityTraceId.CreateFromBytes(bytes);
    }

    internal static SpanKind KindOf(ActivityKind kind) => (SpanKind)((int)kind + 1);

    internal static bool IsRecorded(object activity) => ((Activity)activity).Recorded;

    internal static bool IsRecorded(ActivityContext context) => (context.TraceFlags & ActivityTraceFlags.Recorded) != 0;

    // Whether what is inside the activity is recorded. The nearest one that we have decided about says so; then whoever
    // called the process; then whether the program records it. Null where nobody was asked: it was made without a source,
    // by this program alone.
    internal static bool? Decision(object current)
    {
        var activity = (Activity)current;
        var outermost = activity;
        var hasSource = false;
        for (var around = activity; around != null; around = around.Parent)
        {
            if (ActivitySpans.Decision(around) is { } isSampled)
            {
                return isSampled;
            }
            outermost = around;
            hasSource |= around.Source.Name.Length > 0;
        }
        return DecisionElsewhere(outermost) ?? (activity.Recorded ? true : hasSource ? false : null);
    }

    // By the flags that the activity's parent came with. The activity's own may be those of the program's OpenTelemetry.
    internal static bool? DecisionElsewhere(Activity outermost) =>
        outermost.ParentId is { Length: LengthOfId } parent && parent[LengthOfId - 3] == '-' ? parent[^1] % 2 != 0 : null;

    // Null if no listener is interested in this one. Its parent is the given span, or else the current activity. What a
    // listener throws is reported, and the activity is used all the same: it has begun.
    internal static object? Start(string name, SpanKind kind, Span? parent, Action<Exception> onFailure)
    {
        var before = Activity.Current;
        try
        {
            var started = IsCurrent(before, parent)
                ? source.StartActivity(name, Kind(kind))
                : source.StartActivity(name, Kind(kind), ContextOf(parent!));
            return Usable(started);
        }
        catch (Exception exception)
        {
            onFailure(exception);
            var current = Activity.Current;
            return current != before && current?.Source == source ? Usable(current) : null;
        }
    }

    // The call returns and the activity goes on.
    internal static void Leave(object owned, object? before)
    {
        if (Activity.Current == owned)
        {
            Activity.Current = (Activity?)before;
        }
    }

    // What the program made current in the meantime stays so, as it does without us.
    internal static void Stop(object owned, Action<Exception> onFailure)
    {
        var activity = (Activity)owned;
        var left = Activity.Current;
        try
        {
            activity.Stop();
        }
        catch (Exception exception)
        {
            onFailure(exception);
        }
        if (left != activity)
        {
            Activity.Current = left;
        }
    }

    // On a thread that has nothing to do with the activity but that its task completed there.
    internal static void StopElsewhere(object owned, Action<Exception> onFailure)
    {
        var context = ExecutionContext.Capture();
        var left = Activity.Current;
        var activity = (Activity)owned;
        Activity.Current = activity;
        Stop(activity, onFailure);
        if (context != null)
        {
            ExecutionContext.Restore(context);
        }
        else
        {
            Activity.Current = left;
        }
    }

    // What is known of the span at its end goes to the listeners as well.
    internal static void Describe(Span span)
    {
        var activity = (Activity)span.Activity!;
        if (!activity.IsAllDataRequested)
        {
            return;
        }
        activity.DisplayName = span.Name;
        if (span.Method != null)
        {
            activity.SetTag("code.function.name", span.Method);
        }
        for (var position = 0; position < span.Attributes.Count; position++)
        {
            activity.SetTag(span.Attributes[position].Key, span.Attributes[position].Value);
        }
        if (span.HasError)
        {
            DescribeError(activity, span.ErrorType, span.ErrorMessage);
        }
    }

    internal static void TakeBackFailure(Span span) => ((Activity)span.Activity!).SetStatus(ActivityStatusCode.Unset);

    // Calls what a begin needs, and has compiled what an end needs, so that a trimmed program that lacks it shows now. The
    // activity does not start: a listener would see it, and to end it nevertheless would throw, which debuggers see.
    [MethodImpl(MethodImplOptions.NoInlining)]
    internal static void Rehearse()
    {
        var activity = new Activity(Span.CallScope);
        activity.SetIdFormat(ActivityIdFormat.W3C);
        var span = new Span(TraceOf(activity), IdOf(activity), ParentOf(activity), "", "", Span.CallScope) { Activity = activity };
        _ = Current != null && IsInside(activity, span) && Decision(activity) != true;
        span.Fail("", null);
        Describe(span);
        TakeBackFailure(span);
        if (!HasListeners)
        {
            Start("", SpanKind.Internal, span, _ => { });
        }
        Action<object, Action<Exception>>[] ends = [Stop, StopElsewhere];
        foreach (var end in ends)
        {
            RuntimeHelpers.PrepareMethod(end.Method.MethodHandle);
        }
        Leave(activity, null);
    }

    private static void DescribeError(Activity activity, string? type, string? message)
    {
        activity.SetStatus(ActivityStatusCode.Error, message);
        if (type == null)
        {
            return;
        }
        activity.SetTag("error.type", type);
        var tags = new ActivityTagsCollection { { "exception.type", type } };
        if (message != null)
        {
            tags.Add("exception.message", message);
        }
        activity.AddEvent(new ActivityEvent("exception", tags: tags));
    }

    // An activity whose ids are of an older form cannot be a span.
    private static Activity? Usable(Activity? activity)
    {
        if (activity == null || activity.IdFormat == ActivityIdFormat.W3C)
        {
            return activity;
        }
        activity.Stop();
        return null;
    }

    private static bool IsCurrent(Activity? current, Span? parent) =>
        parent == null || (parent.OwnsActivity && parent.Activity == current);

    private static ActivityContext ContextOf(Span span)
    {
        System.Span<byte> bytes = stackalloc byte[8];
        BinaryPrimitives.WriteUInt64BigEndian(bytes, span.Id);
        return new ActivityContext(
            TraceIdOf(span), ActivitySpanId.CreateFromBytes(bytes), span.IsRecorded ? ActivityTraceFlags.Recorded : ActivityTraceFlags.None);
    }

    private static bool IsAround(Activity activity, Activity? inner)
    {
        for (var around = inner?.Parent; around != null; around = around.Parent)
        {
            if (around == activity)
            {
                return true;
            }
        }
        return false;
    }

    // The platform counts them in the same order.
    private static ActivityKind Kind(SpanKind kind) => (ActivityKind)((int)kind - 1);

    private static ulong Number(ActivitySpanId id)
    {
        System.Span<byte> bytes = stackalloc byte[8];
        id.CopyTo(bytes);
        return BinaryPrimitives.ReadUInt64BigEndian(bytes);
    }
}
#endif
