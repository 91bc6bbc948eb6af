using System;

namespace Corvane.Instrumentation.Export;

// OTLP in lines of JSON, as the collector's file exporter writes it and its receiver of such files reads it.
internal sealed class OtlpFile : ISpanTarget
{
    private const int MaxOfLine = 512;

    private readonly BlockFile file;
    private readonly Resource resource;
    private readonly OtlpJson json = new OtlpJson();

    internal OtlpFile(BlockFile file, Resource resource)
    {
        this.file = file;
        this.resource = resource;
    }

    public Losses Losses => file.Losses;

    public void Write(DrainedSpans drained)
    {
        var spans = drained.Spans;
        for (var from = 0; from < spans.Count; from += MaxOfLine)
        {
            var count = Math.Min(MaxOfLine, spans.Count - from);
            json.Bytes.Clear();
            OtlpTraces.Write(json, resource, spans, from, count);
            json.Bytes.Byte('\n');
            file.Write(json.Bytes, count);
        }
    }

    // It has no place for the reason.
    public void WriteNothing(string why)
    {
        json.Bytes.Clear();
        file.Begin(json.Bytes);
    }

    public void End(DateTime until)
    {
    }
}
