using System.Collections;
using System.IO;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Conventions;

// Gives events of log4net the ids of a span, as properties, which patterns can name. What has them keeps them.
internal static class Log4NetEvents
{
    private static readonly PropertyReader properties = new PropertyReader("Properties");

    internal static void Write(Span span, object?[] arguments)
    {
        if (span.Trace.IsNone)
        {
            return;
        }
        foreach (var argument in arguments)
        {
            if (properties.Read(argument) is IDictionary { IsReadOnly: false } found)
            {
                if (!found.Contains(LogConvention.TraceIdName))
                {
                    found[LogConvention.TraceIdName] = span.Trace.ToString();
                    found[LogConvention.SpanIdName] = SpanId.Text(span.Id);
                }
                return;
            }
        }
    }

    // In front of a line of a layout that has no pattern.
    internal static void WriteTraceId(Span span, object?[] arguments)
    {
        if (!span.Trace.IsNone && arguments.Length > 0 && arguments[0] is TextWriter writer)
        {
            writer.Write(span.Trace.ToString());
            writer.Write(' ');
        }
    }
}
