using System;
using System.Reflection;

namespace Corvane.Instrumentation.Conventions;

// Lets a text formatter of Serilog write the trace id: at the end of the line, in front of the exception, unless its
// template names the id anywhere. A template is a text, which cannot be replaced on its way into the constructor.
internal static class SerilogTemplate
{
    private const string Token = "{" + LogConvention.TraceIdName;
    private const string LineEnd = "{NewLine";

    internal static void Extend(object? formatter, object?[] arguments)
    {
        if (formatter == null || arguments.Length == 0 || arguments[0] is not string template ||
            template.IndexOf(Token, StringComparison.Ordinal) >= 0)
        {
            return;
        }
        var field = Field(formatter.GetType());
        var parserType = field?.FieldType.Assembly.GetType("Serilog.Parsing.MessageTemplateParser");
        var parse = parserType?.GetMethod("Parse", [typeof(string)]);
        if (field != null && parse != null && field.FieldType.IsAssignableFrom(parse.ReturnType))
        {
            field.SetValue(formatter, parse.Invoke(Activator.CreateInstance(parserType!), [Extended(template)]));
        }
    }

    internal static string Extended(string template)
    {
        var end = template.LastIndexOf(LineEnd, StringComparison.Ordinal);
        return template.Insert(end < 0 ? template.Length : end, " " + Token + "}");
    }

    private static FieldInfo? Field(Type? type)
    {
        FieldInfo? field = null;
        for (; type != null && field == null; type = type.BaseType)
        {
            field = type.GetField("_outputTemplate", BindingFlags.Instance | BindingFlags.NonPublic | BindingFlags.DeclaredOnly);
        }
        return field;
    }
}
