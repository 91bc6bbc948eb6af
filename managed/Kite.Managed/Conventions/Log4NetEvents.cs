using System.Collections;
using System.IO;

namespace Corvane.Instrumentation.Conventions;

// Gives events of log4net the ids of a span, as properties, which patterns can name. What has them keeps them.
internal static class Log4NetEvents
{
    private static readonly PropertyReader properties = new PropertyReader("Properties");

    internal static void Stamp(object?[] arguments, LineIds ids)
    {
        foreach (var argument in arguments)
        {
            if (properties.Read(argument) is IDictionary { IsReadOnly: false } found)
            {
                if (!found.Contains(LogConvention.TraceIdName))
                {
                    found[LogConvention.TraceIdName] = ids.Trace;
                    found[LogConvention.SpanIdName] = ids.Span;
                }
                return;
            }
        }
    }

    // In front of a line of a layout that has no pattern.
    internal static void WriteTraceId(object?[] arguments, LineIds ids)
    {
        if (arguments.Length > 0 && arguments[0] is TextWriter writer)
        {
            writer.Write(ids.Trace);
            writer.Write(' ');
        }
    }
}
