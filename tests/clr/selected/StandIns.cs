// Types with the names of libraries that the target table knows, and the attributes that are looked
// for by name. Nothing here is inlined, so that every method is compiled when it is first called.
using System;
using System.Collections.Generic;
using System.Runtime.CompilerServices;
using System.Security;

namespace System.Security
{
    // The runtime's own one goes on assemblies only.
    [AttributeUsage(AttributeTargets.Method)]
    internal sealed class SecurityTransparentAttribute : Attribute { }
}

namespace Corvane.Instrumentation
{
    [AttributeUsage(AttributeTargets.Method | AttributeTargets.Constructor)]
    internal sealed class TraceAttribute : Attribute
    {
        public TraceAttribute(string name = "") => Name = name;
        public string Name { get; }
    }

    internal class MultipleExitPoints
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public int InstrumentedMethod(int number) => number < 0 ? -1 : number * 2;

        [MethodImpl(MethodImplOptions.NoInlining), SecurityTransparent]
        public void SomeVoidMethod() { }
    }

    internal static class MethodArguments
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public static T InstrumentedMethod<T>(T value) => value;
    }
}

namespace Serilog.Context
{
    internal static class LogContext
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public static string Enrich() => "enriched";
    }
}

namespace Serilog.Formatting.Compact
{
    internal class CompactJsonFormatter
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public string Format(string text) => "{" + text + "}";
    }
}

namespace Serilog.Sinks.Murrel
{
    internal static class LogEventConverter
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public static string CreateMurrelEvent(string text) => "event " + text;
    }
}

namespace Serilog.Formatting.Display
{
    internal class MessageTemplateTextFormatter
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public MessageTemplateTextFormatter(string template) => Template = template;
        public string Template;
    }
}

namespace log4net.Core
{
    internal static class LoggerManager
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public static string GetLogger(string name) => name;
    }
}

namespace log4net.Layout
{
    internal class SimpleLayout
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public string Format(string text) => text;

        // Differs from the row by its letter case.
        [MethodImpl(MethodImplOptions.NoInlining)]
        public string format(string text) => text;
    }
}

namespace log4net.Repository.Hierarchy
{
    internal class Logger
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public int CallAppenders(List<string> appenders) => appenders.Count;
    }
}

namespace log4net.Layout.Pattern
{
    internal class PropertyPatternConverter
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public string Convert(object value) => $"{value}";
    }
}

namespace Shapes
{
    internal static class Static
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public static int Main(int number) => number + 1;

        // Differs by its letter case.
        [MethodImpl(MethodImplOptions.NoInlining)]
        public static int main(int number) => number + 2;
    }

    internal class Instance
    {
        [MethodImpl(MethodImplOptions.NoInlining)]
        public int Main(int number) => number + 3;

        internal class Nested
        {
            [MethodImpl(MethodImplOptions.NoInlining)]
            public static int Main() => 4;
        }
    }

    internal class Marked
    {
        [Corvane.Instrumentation.Trace("constructor"), MethodImpl(MethodImplOptions.NoInlining)]
        public Marked() { }

        [Corvane.Instrumentation.Trace, MethodImpl(MethodImplOptions.NoInlining)]
        public int Plain(int number) => number + 5;

        [Corvane.Instrumentation.Trace, MethodImpl(MethodImplOptions.NoInlining)]
        public T Generic<T>(T value) => value;

        [Corvane.Instrumentation.Trace, SecurityTransparent, MethodImpl(MethodImplOptions.NoInlining)]
        public int Transparent(int number) => number + 6;

        [MethodImpl(MethodImplOptions.NoInlining)]
        public int Unmarked(int number) => number + 7;
    }

    internal class Generic<T>
    {
        [Corvane.Instrumentation.Trace, MethodImpl(MethodImplOptions.NoInlining)]
        public T Get(T value) => value;
    }
}
