// Stand-ins for log4net and for Serilog's compact formatter: types and methods of their names, with as much in them as a
// line needs.
using System.Collections;
using System.IO;
using Serilog.Events;

namespace log4net.Core
{
    internal sealed class LoggingEvent(string message)
    {
        public string Message => message;

        public IDictionary Properties { get; } = new Hashtable();
    }
}

namespace log4net.Layout
{
    internal sealed class SimpleLayout
    {
        public void Format(TextWriter writer, Core.LoggingEvent loggingEvent) => writer.WriteLine("INFO - " + loggingEvent.Message);
    }
}

namespace log4net.Layout.Pattern
{
    internal sealed class PropertyPatternConverter
    {
        public void Convert(TextWriter writer, Core.LoggingEvent loggingEvent) =>
            writer.WriteLine($"{loggingEvent.Properties["TraceId"]}/{loggingEvent.Properties["SpanId"]}");
    }
}

namespace log4net.Repository.Hierarchy
{
    internal sealed class Logger(TextWriter writer)
    {
        public void CallAppenders(Core.LoggingEvent loggingEvent)
        {
            new Layout.SimpleLayout().Format(writer, loggingEvent);
            new Layout.Pattern.PropertyPatternConverter().Convert(writer, loggingEvent);
        }
    }
}

namespace Serilog.Formatting.Compact
{
    internal sealed class CompactJsonFormatter : ITextFormatter
    {
        public void Format(LogEvent logEvent, TextWriter output) =>
            output.WriteLine($"{{\"@tr\":\"{logEvent.TraceId}\",\"@sp\":\"{logEvent.SpanId}\"}}");
    }
}
