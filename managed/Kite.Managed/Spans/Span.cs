using System;
using System.Collections.Generic;

namespace Corvane.Instrumentation.Spans;

// One operation of the program, from its begin to the end of its work. It is written by whoever runs the operation,
// one at a time, and not any more once a sink has it; except that a failure may be taken back.
internal sealed class Span
{
    // Of the spans that are made of calls.
    internal const string CallScope = "Corvane.Instrumentation";

    // Stands for no span.
    internal static readonly Span None = new Span(default, 0, 0, "", null, CallScope) { IsSampled = false };

    private static readonly KeyValuePair<string, object>[] none = new KeyValuePair<string, object>[0];

    private List<KeyValuePair<string, object>>? attributes;

    // Together, for there is a span for each call.
    private Facts facts = Facts.IsSampled;

    internal Span(TraceId trace, ulong id, ulong parentId, string name, string? method, string scope)
    {
        Trace = trace;
        Id = id;
        ParentId = parentId;
        Name = name;
        Method = method;
        Scope = scope;
    }

    internal TraceId Trace { get; }

    internal ulong Id { get; }

    // 0 for none.
    internal ulong ParentId { get; }

    internal string Name { get; set; }

    // Namespace, type and name; null for a span that is not of a call.
    internal string? Method { get; }

    // Who made it: CallScope, or the name of an activity source.
    internal string Scope { get; }

    // In timestamps of Stopwatch.
    internal long Started { get; set; }

    // 0 while it is open. It is set when the rest is: at the end of the process a span is written as it is.
    internal long Ended { get; set; }

    // The managed thread that it began on.
    internal int ThreadId { get; set; }

    internal SpanKind Kind { get; set; } = SpanKind.Internal;

    // Its work may go on afterwards: nothing that may be looked at says when that ends.
    internal bool EndsAtReturn
    {
        get => Has(Facts.EndsAtReturn);
        set => Set(Facts.EndsAtReturn, value);
    }

    // Sinks are shown no other ones.
    internal bool IsSampled
    {
        get => Has(Facts.IsSampled);
        set => Set(Facts.IsSampled, value);
    }

    // The queue has a record of it.
    internal bool IsQueued
    {
        get => Has(Facts.IsQueued);
        set => Set(Facts.IsQueued, value);
    }

    // The activity that was current when the span had begun, and whether it was made for the span.
    internal object? Activity { get; set; }

    internal bool OwnsActivity
    {
        get => Has(Facts.OwnsActivity);
        set => Set(Facts.OwnsActivity, value);
    }

    // By a sink of ours or by whoever listens to the program's activities: what is called has to be recorded, too.
    internal bool IsRecorded =>
#if NET
        IsSampled || (OwnsActivity && CallActivities.IsRecorded(Activity!));
#else
        IsSampled;
#endif

    internal SpanFailure? Failure { get; private set; }

    internal bool HasError => Failure != null;

    internal string? ErrorType => Failure?.Type;

    internal string? ErrorMessage => Failure?.Message;

    internal IReadOnlyList<KeyValuePair<string, object>> Attributes => (IReadOnlyList<KeyValuePair<string, object>>?)attributes ?? none;

    // A string, long, double or bool. The last one of a key counts.
    internal void SetAttribute(string key, object value)
    {
        attributes ??= new List<KeyValuePair<string, object>>();
        var attribute = new KeyValuePair<string, object>(key, value);
        for (var position = 0; position < attributes.Count; position++)
        {
            if (attributes[position].Key == key)
            {
                attributes[position] = attribute;
                return;
            }
        }
        attributes.Add(attribute);
    }

    internal void Fail(string? type, string? message) => Failure = new SpanFailure(type, message);

    // The operation went well after all.
    internal void TakeBackFailure()
    {
        if (Failure != null)
        {
            Failure.IsTakenBack = true;
            Failure = null;
        }
    }

    private bool Has(Facts fact) => (facts & fact) != 0;

    private void Set(Facts fact, bool value) => facts = value ? facts | fact : facts & ~fact;

    [Flags]
    private enum Facts : byte
    {
        None = 0,
        EndsAtReturn = 1,
        IsSampled = 2,
        IsQueued = 4,
        OwnsActivity = 8,
    }
}
