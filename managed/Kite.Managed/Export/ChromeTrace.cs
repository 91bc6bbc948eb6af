using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Threading;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// A file for viewers of Chrome's trace format: an array with an event on each line, whose closing bracket may be
// missing. A span that fits between the others of its thread is a slice of that thread. One that does not, such as
// that of an asynchronous method, is an asynchronous event.
internal sealed class ChromeTrace : ISpanTarget
{
    private const int MaxOfBlock = 512;

    private readonly BlockFile file;
    private readonly Resource resource;
    private readonly ByteText text = new ByteText();
    private readonly Dictionary<int, ThreadSlices> threads = new Dictionary<int, ThreadSlices>();
    private readonly SpanFlows flows = new SpanFlows();

    internal ChromeTrace(BlockFile file, Resource resource)
    {
        this.file = file;
        this.resource = resource;
    }

    public Losses Losses => file.Losses;

    public void Write(DrainedSpans drained)
    {
        Begin();
        foreach (var thread in drained.Threads)
        {
            NameThread(thread);
        }
        var spans = 0;
        for (var index = 0; index < drained.Spans.Count; index++)
        {
            Write(drained.Spans[index], drained.EndedOn[index]);
            if (++spans == MaxOfBlock)
            {
                file.Write(text, spans);
                Begin();
                spans = 0;
            }
        }
        file.Write(text, spans);
    }

    public void WriteNothing(string why)
    {
        Begin();
        text.Ascii(",\n{\"ph\":\"M\",\"name\":\"process_labels\",\"pid\":").Decimal(resource.ProcessId)
            .Ascii(",\"args\":{\"labels\":").Json(why).Ascii("}}");
        file.Begin(text);
        End(DateTime.UtcNow);
    }

    public void End(DateTime until)
    {
        if (!file.IsEmpty)
        {
            text.Clear();
            file.Write(text.Ascii("\n]\n"), 0);
        }
    }

    private void Begin()
    {
        text.Clear();
        if (file.IsEmpty)
        {
            text.Ascii("[\n{\"ph\":\"M\",\"name\":\"process_name\",\"pid\":").Decimal(resource.ProcessId)
                .Ascii(",\"args\":{\"name\":").Json(resource.ServiceName).Ascii("}}");
        }
    }

    private void NameThread(Thread thread)
    {
        if (!string.IsNullOrEmpty(thread.Name))
        {
            Event('M', "thread_name", thread.ManagedThreadId).Ascii(",\"args\":{\"name\":").Json(thread.Name!).Ascii("}}");
        }
    }

    private void Write(in SpanRecord span, int endedOn)
    {
        var isOpen = span.Ended == 0;
        var ended = SpanFacts.Ended(span);
        if ((isOpen || endedOn == span.ThreadId) && SlicesOf(span.ThreadId).Take(span.Started, ended))
        {
            Event('X', span.Name, span.ThreadId, span.Started).Ascii(",\"dur\":");
            Microseconds(Nanoseconds(ended) - Nanoseconds(span.Started));
            AppendFacts(span);
            foreach (var flow in flows.Add(span, ended))
            {
                AppendFlow(flow);
            }
        }
        else
        {
            Event('b', span.Name, span.ThreadId, span.Started).Ascii(",\"id\":\"0x").Hex(span.Id).Byte('"');
            AppendFacts(span);
            Event('e', span.Name, span.ThreadId, ended).Ascii(",\"id\":\"0x").Hex(span.Id).Ascii("\",\"cat\":").Json(span.Scope).Byte('}');
        }
    }

    private ThreadSlices SlicesOf(int thread)
    {
        if (!threads.TryGetValue(thread, out var slices))
        {
            threads.Add(thread, slices = new ThreadSlices());
        }
        return slices;
    }

    private void AppendFacts(in SpanRecord span)
    {
        text.Ascii(",\"cat\":").Json(span.Scope).Ascii(",\"args\":{\"trace_id\":\"").Hex(span.Trace.High).Hex(span.Trace.Low)
            .Ascii("\",\"span_id\":\"").Hex(span.Id).Byte('"');
        if (span.ParentId != 0)
        {
            text.Ascii(",\"parent_span_id\":\"").Hex(span.ParentId).Byte('"');
        }
        if (span.ErrorMessage != null)
        {
            text.Ascii(",\"exception.message\":").Json(span.ErrorMessage);
        }
        foreach (var attribute in SpanFacts.Attributes(span))
        {
            text.Byte(',').Json(attribute.Key).Byte(':');
            switch (attribute.Value)
            {
                case long number:
                    text.Decimal(number);
                    break;
                case double number:
                    text.Json(number);
                    break;
                case bool truth:
                    text.Ascii(truth ? "true" : "false");
                    break;
                default:
                    text.Json(attribute.Value as string ?? "");
                    break;
            }
        }
        text.Ascii("}}");
    }

    // An arrow from the one slice to the other.
    private void AppendFlow(SpanFlows.Flow flow)
    {
        Event('s', "call", flow.FromThread, flow.From);
        text.Ascii(",\"cat\":\"flow\",\"id\":\"0x").Hex(flow.Id).Ascii("\"}");
        Event('f', "call", flow.ToThread, flow.To);
        text.Ascii(",\"cat\":\"flow\",\"bp\":\"e\",\"id\":\"0x").Hex(flow.Id).Ascii("\"}");
    }

    private ByteText Event(char phase, string name, int thread, long? timestamp = null)
    {
        text.Ascii(",\n{\"ph\":\"").Byte(phase).Ascii("\",\"name\":").Json(name).Ascii(",\"pid\":").Decimal(resource.ProcessId)
            .Ascii(",\"tid\":").Decimal(thread);
        if (timestamp is { } moment)
        {
            text.Ascii(",\"ts\":");
            Microseconds(Nanoseconds(moment));
        }
        return text;
    }

    private void Microseconds(long nanoseconds)
    {
        nanoseconds = Math.Max(0, nanoseconds);
        text.Decimal(nanoseconds / 1000).Byte('.').Decimal((ulong)(nanoseconds % 1000), 3);
    }

    // Not since any date: viewers calculate with numbers that do not hold nanoseconds since 1970.
    private static long Nanoseconds(long timestamp) =>
        (timestamp / Stopwatch.Frequency * 1_000_000_000) + (timestamp % Stopwatch.Frequency * 1_000_000_000 / Stopwatch.Frequency);
}
