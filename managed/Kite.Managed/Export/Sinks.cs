using System;
using System.Collections.Generic;
using System.IO;
using System.Runtime.CompilerServices;
using Corvane.Instrumentation.Recording;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// Where the spans of this process go, by the variables.
internal sealed class Sinks
{
    private const string EndVariable = "CORVANE_END_SECONDS";
    private const int UsualEnd = 2;
    private const int LongestEnd = 3600;

    private readonly Exporter exporter;
    private readonly RootSampling sampling;
    private readonly IReadOnlyList<string> files;
    private readonly string? endpoint;
    private readonly TimeSpan end;

    internal Sinks(IReadOnlyList<ISpanTarget> targets, IReadOnlyList<string> files, string? endpoint, Variables variables)
    {
        exporter = new Exporter(targets);
        this.files = files;
        this.endpoint = endpoint;
        sampling = RootSampling.From(variables);
        Sampler = sampling.IsSampled;
        end = TimeSpan.FromSeconds(Math.Min(variables.Number(EndVariable, UsualEnd), LongestEnd));
    }

    internal ISpanSink Spans => exporter;

    internal RootSampler Sampler { get; }

    internal bool HasSpans => exporter.HasSpans;

    // Whether there were traces that are not recorded.
    internal bool HasLeftOut => sampling.HasLeftOut;

    // Null if nobody asked for spans.
    internal static Sinks? FromEnvironment()
    {
        var variables = Variables.OfProcess;
        var otlp = OutputTarget.FromVariable("CORVANE_OTLP_FILE");
        var chrome = OutputTarget.FromVariable("CORVANE_TRACE_FILE");
        var endpoint = OtlpEndpoint.From(variables);
        if (otlp == null && chrome == null && endpoint == null)
        {
            return null;
        }
        var resource = Resource.From(variables);
        Rehearse(resource);
        var targets = new List<ISpanTarget>();
        var files = new List<string>();
        if (otlp != null)
        {
            targets.Add(new OtlpFile(File(otlp), resource));
            files.Add(otlp.Name);
        }
        if (chrome != null)
        {
            targets.Add(new ChromeTrace(File(chrome), resource));
            files.Add(chrome.Name);
        }
        if (endpoint != null)
        {
            targets.Add(new OtlpPush(endpoint, resource));
        }
        return new Sinks(targets, files, endpoint?.Name, variables);
    }

    // The spans that had ended until now.
    internal void Flush(Flushed flushed)
    {
        if (exporter.HasSpans && !exporter.Flush(end))
        {
            flushed.Remarks.Add(FormattableString.Invariant($"not all spans were written within {end.TotalSeconds} s"));
        }
        else if (!exporter.HasWritten)
        {
            flushed.Remarks.Add("no span has ended yet");
        }
        else
        {
            flushed.Files.AddRange(files);
            if (endpoint != null)
            {
                flushed.Remarks.Add($"spans are on their way to {endpoint}");
            }
        }
    }

    // Files of an earlier process are not left where there are no spans.
    internal void ReplaceFiles(string why) => exporter.EndWithout(why);

    // Nothing is recorded behind it. What is lost is said in one line.
    internal void End()
    {
        if (exporter.End(end) is { } lost)
        {
            Complaint.Write(lost);
        }
    }

    private static BlockFile File(OutputTarget target) => new BlockFile(target.OpenStream, target.Name);

    // What a program that was trimmed lacks shows now. What sends runs on a thread of its own and says so there.
    [MethodImpl(MethodImplOptions.NoInlining)]
    private static void Rehearse(Resource resource)
    {
        var span = new Span(new TraceId(0, 1), 1, 2, "name", "method", Span.CallScope);
        span.SetAttribute("text", "value");
        span.SetAttribute("number", 0.5);
        span.Fail("type", "message");
        var exporter = new Exporter(new ISpanTarget[]
        {
            new OtlpFile(new BlockFile(() => new MemoryStream(), ""), resource),
            new ChromeTrace(new BlockFile(() => new MemoryStream(), ""), resource),
        });
        exporter.Rehearse(span);
        OtlpTraces.Write(new OtlpProtobuf(), resource, new[] { new SpanRecord(span) }, 0, 1);
    }
}
