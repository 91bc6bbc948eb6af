#if NET
using System;
using System.Diagnostics;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation.Conventions;
using Corvane.Instrumentation.Privacy;

namespace Corvane.Instrumentation.Spans;

// Makes spans of the activities with which the platform and its libraries tell what they do: requests, outgoing calls,
// commands. They and the spans of calls are parents of each other, as the program's flow has it. Any thread.
internal sealed class ActivitySpans : IDisposable
{
    private const string SpanProperty = "Corvane.Instrumentation.Span";

    // What was decided last about the parent of an activity that this thread is about to start.
    [ThreadStatic]
    private static (ActivitySpanId Id, bool? IsSampled) parentOfNext;

    private readonly ISpanSink sink;
    private readonly RootSampler sampler;
    private readonly RecordedValues values;
    private readonly Action<Action> guarded;
    private readonly ActivityListener listener;

    // What runs in the program's midst goes through `guarded`.
    internal ActivitySpans(ISpanSink sink, RootSampler sampler, RecordedValues values, SourceNames sources, Action<Action> guarded)
    {
        this.sink = sink;
        this.sampler = sampler;
        this.values = values;
        this.guarded = guarded;
        listener = new ActivityListener
        {
            ShouldListenTo = source => sources.Contain(source.Name),
            Sample = Sample,
            ActivityStarted = activity => guarded(() => OnStarted(activity)),
            ActivityStopped = activity => guarded(() => OnStopped(activity)),
        };
    }

    // From here on. An activity that begins a trace inside a span takes the trace of the span.
    [MethodImpl(MethodImplOptions.NoInlining)]
    internal void Begin()
    {
        Activity.TraceIdGenerator ??= NewTraceId;
        ActivitySource.AddActivityListener(listener);
    }

    public void Dispose()
    {
        if (Activity.TraceIdGenerator == NewTraceId)
        {
            Activity.TraceIdGenerator = null;
        }
        listener.Dispose();
    }

    // Null for one that is no span.
    internal static Span? Of(Activity? activity) =>
        activity?.GetCustomProperty(SpanProperty) is Span { IsSampled: true } span ? span : null;

    // What was decided here about an activity, whatever the program's own OpenTelemetry does with it. Null if nothing was.
    internal static bool? Decision(Activity activity) => (activity.GetCustomProperty(SpanProperty) as Span)?.IsSampled;

    private static ActivityTraceId NewTraceId() =>
        SpanFlow.Current is { Trace.IsNone: false } span ? CallActivities.TraceIdOf(span) : ActivityTraceId.CreateRandom();

    // Where a trace that is not sampled begins, its activity carries that to whoever takes part in it.
    private ActivitySamplingResult Sample(ref ActivityCreationOptions<ActivityContext> options)
    {
        if (OwnWork.IsCurrent)
        {
            return ActivitySamplingResult.None;
        }
        var parent = options.Parent;
        var isRoot = parent == default;
        var decision = isRoot ? null : Decision(parent);
        parentOfNext = (parent.SpanId, decision);
        if (IsSampled(CallActivities.TraceOf(options.TraceId), decision))
        {
            return ActivitySamplingResult.AllDataAndRecorded;
        }
        return isRoot ? ActivitySamplingResult.PropagationData : ActivitySamplingResult.None;
    }

    // Of an activity that is not there any more, or is elsewhere, nothing but the flags is known.
    private static bool? Decision(ActivityContext parent) =>
        Activity.Current is { } current && current.SpanId == parent.SpanId
            ? CallActivities.Decision(current)
            : CallActivities.IsRecorded(parent);

    private static bool? DecisionOfParent(Activity activity)
    {
        if (activity.Parent is { } parent)
        {
            return CallActivities.Decision(parent);
        }
        if (activity.ParentSpanId == default)
        {
            return null;
        }
        return parentOfNext.Id == activity.ParentSpanId ? parentOfNext.IsSampled : CallActivities.DecisionElsewhere(activity);
    }

    private bool IsSampled(TraceId trace, bool? parentIsSampled)
    {
        try
        {
            return SpanFlow.Current is { } span && span.Trace.Equals(trace) ? span.IsSampled : sampler(trace, parentIsSampled);
        }
        catch (Exception)
        {
            return false;
        }
    }

    private void OnStarted(Activity activity)
    {
        if (activity.IdFormat != ActivityIdFormat.W3C || OwnWork.IsCurrent)
        {
            return;
        }
        var trace = CallActivities.TraceOf(activity);
        if (!activity.Recorded || !IsSampled(trace, DecisionOfParent(activity)))
        {
            // Another listener may record it, and what is inside is to be left out with it. Without a source it decides nothing.
            if (activity.Source.Name.Length > 0)
            {
                activity.SetCustomProperty(SpanProperty, Span.None);
            }
            return;
        }
        var span = new Span(
            trace, CallActivities.IdOf(activity), ParentOf(activity, trace), NameText.Of(activity.DisplayName), null,
            activity.Source.Name)
        {
            Kind = CallActivities.KindOf(activity.Kind),
            ThreadId = Environment.CurrentManagedThreadId,
            Started = Stopwatch.GetTimestamp(),
        };
        activity.SetCustomProperty(SpanProperty, span);
        sink.OnBegun(span);
    }

    // The span that the program is in, if that began inside of the activity's own parent.
    private static ulong ParentOf(Activity activity, TraceId trace)
    {
        var own = CallActivities.ParentOf(activity);
        if (SpanFlow.Current is not { } span || !span.Trace.Equals(trace))
        {
            return own;
        }
        var isGiven = activity.Parent == null && own != 0;
        return isGiven || (activity.Parent != null && CallActivities.IsInside(activity.Parent, span)) ? own : span.Id;
    }

    private void OnStopped(Activity activity)
    {
        if (Of(activity) is not { Ended: 0 } span)
        {
            return;
        }
        var now = Stopwatch.GetTimestamp();
        // What the platform's events say has made a better one.
        if (span.Attributes.Count == 0)
        {
            span.Name = NameText.Of(activity.DisplayName);
        }
        var system = (activity.GetTagItem(AttributeNames.DatabaseSystem) ?? activity.GetTagItem("db.system")) as string;
        foreach (var tag in activity.EnumerateTagObjects())
        {
            if (ActivityTags.Redact(span.Scope, system, tag.Key, tag.Value, values) is { } value)
            {
                span.SetAttribute(tag.Key, value);
            }
        }
        if (!span.HasError && (activity.Status == ActivityStatusCode.Error || activity.GetTagItem("otel.status_code") is "ERROR"))
        {
            span.Fail(
                ActivityTags.Redact(span.Scope, system, AttributeNames.ErrorType, activity.GetTagItem(AttributeNames.ErrorType), values) as string,
                Message(activity));
        }
        span.Ended = now;
        sink.OnEnded(span);
    }

    private string? Message(Activity activity) =>
        values == RecordedValues.All && (activity.StatusDescription ?? activity.GetTagItem("otel.status_description")) is string message
            ? SecretText.OfValue(message, MaxMessage)
            : null;

    private const int MaxMessage = 1_000;
}
#endif
