using System.Collections.Generic;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// A request of OTLP with some spans. All of them are of this process, and those of one scope stand together.
internal static class OtlpTraces
{
    private const int Error = 2;

    internal static void Write(IOtlpEncoding to, Resource resource, IReadOnlyList<SpanRecord> spans, int from, int count)
    {
        var clock = SpanClock.OfProcess.Newest;
        to.BeginAll();
        to.BeginList(OtlpFields.ResourceSpans);
        to.BeginItem(OtlpFields.ResourceSpans);
        to.BeginMessage(OtlpFields.Resource);
        Attributes(to, OtlpFields.ResourceAttributes, resource.Attributes);
        to.EndMessage();
        to.BeginList(OtlpFields.ScopeSpans);
        foreach (var scope in Scopes(spans, from, count))
        {
            WriteScope(to, clock, scope, spans, from, count);
        }
        to.EndList();
        to.EndMessage();
        to.EndList();
        to.EndAll();
    }

    // There are few of them.
    private static List<string> Scopes(IReadOnlyList<SpanRecord> spans, int from, int count)
    {
        var scopes = new List<string>();
        for (var index = from; index < from + count; index++)
        {
            if (!scopes.Contains(spans[index].Scope))
            {
                scopes.Add(spans[index].Scope);
            }
        }
        return scopes;
    }

    private static void WriteScope(
        IOtlpEncoding to, SpanClock.Reading clock, string scope, IReadOnlyList<SpanRecord> spans, int from, int count)
    {
        to.BeginItem(OtlpFields.ScopeSpans);
        to.BeginMessage(OtlpFields.Scope);
        to.Text(OtlpFields.ScopeName, scope);
        if (scope == Span.CallScope)
        {
            to.Text(OtlpFields.ScopeVersion, Resource.LibraryVersion);
        }
        to.EndMessage();
        to.BeginList(OtlpFields.Spans);
        for (var index = from; index < from + count; index++)
        {
            if (spans[index].Scope == scope)
            {
                WriteSpan(to, clock, spans[index]);
            }
        }
        to.EndList();
        to.EndMessage();
    }

    private static void WriteSpan(IOtlpEncoding to, SpanClock.Reading clock, in SpanRecord span)
    {
        var ended = SpanFacts.Ended(span);
        to.BeginItem(OtlpFields.Spans);
        to.Trace(OtlpFields.TraceId, span.Trace);
        to.Id(OtlpFields.SpanId, span.Id);
        if (span.ParentId != 0)
        {
            to.Id(OtlpFields.ParentSpanId, span.ParentId);
        }
        to.Text(OtlpFields.Name, span.Name);
        to.Enum(OtlpFields.Kind, (int)span.Kind);
        to.Time(OtlpFields.Start, clock.UnixNanoseconds(span.Started));
        to.Time(OtlpFields.End, clock.UnixNanoseconds(ended));
        Attributes(to, OtlpFields.Attributes, SpanFacts.Attributes(span));
        if (span.HasError)
        {
            WriteError(to, clock, span, ended);
        }
        to.EndMessage();
    }

    // What is no exception, such as a status of HTTP, has no event.
    private static void WriteError(IOtlpEncoding to, SpanClock.Reading clock, in SpanRecord span, long ended)
    {
        if (span.ErrorType != null)
        {
            to.BeginList(OtlpFields.Events);
            to.BeginItem(OtlpFields.Events);
            to.Time(OtlpFields.EventTime, clock.UnixNanoseconds(ended));
            to.Text(OtlpFields.EventName, "exception");
            to.BeginList(OtlpFields.EventAttributes);
            Attribute(to, OtlpFields.EventAttributes, "exception.type", span.ErrorType);
            if (span.ErrorMessage != null)
            {
                Attribute(to, OtlpFields.EventAttributes, "exception.message", span.ErrorMessage);
            }
            to.EndList();
            to.EndMessage();
            to.EndList();
        }
        to.BeginMessage(OtlpFields.Status);
        to.Enum(OtlpFields.StatusCode, Error);
        to.EndMessage();
    }

    private static void Attributes(IOtlpEncoding to, Field list, IReadOnlyCollection<KeyValuePair<string, object>> attributes)
    {
        if (attributes.Count > 0)
        {
            to.BeginList(list);
            foreach (var attribute in attributes)
            {
                Attribute(to, list, attribute.Key, attribute.Value);
            }
            to.EndList();
        }
    }

    private static void Attribute(IOtlpEncoding to, Field list, string key, object value)
    {
        to.BeginItem(list);
        to.Text(OtlpFields.Key, key);
        to.BeginMessage(OtlpFields.Value);
        switch (value)
        {
            case long number:
                to.Number(OtlpFields.IntValue, number);
                break;
            case double number:
                to.Real(OtlpFields.DoubleValue, number);
                break;
            case bool truth:
                to.Truth(OtlpFields.BoolValue, truth);
                break;
            default:
                to.Text(OtlpFields.StringValue, value as string ?? "");
                break;
        }
        to.EndMessage();
        to.EndMessage();
    }
}
