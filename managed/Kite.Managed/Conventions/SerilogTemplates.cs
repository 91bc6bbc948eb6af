using System;
using System.Collections.Generic;
using System.Threading;

namespace Corvane.Instrumentation.Conventions;

// Lets text formatters of Serilog write the trace id: at the end of the line, in front of the exception, unless their
// template names the id anywhere. A template is a text, which cannot be replaced on its way into the constructor, and
// behind that nobody may be asked: so a formatter is extended when the next line is given its ids.
internal static class SerilogTemplates
{
    private const string Token = "{" + LogConvention.TraceIdName;
    private const string LineEnd = "{NewLine";
    private const int MaxPending = 1_000;

    private static readonly List<WeakReference<object>> pending = new List<WeakReference<object>>();
    private static readonly PropertyReader templateText = new PropertyReader("Text");
    private static int count;

    // The formatter is not constructed yet.
    internal static void Announce(object? formatter)
    {
        if (formatter == null)
        {
            return;
        }
        lock (pending)
        {
            if (count < MaxPending)
            {
                pending.Add(new WeakReference<object>(formatter));
                Volatile.Write(ref count, pending.Count);
            }
        }
    }

    internal static void ExtendAnnounced()
    {
        if (Volatile.Read(ref count) == 0)
        {
            return;
        }
        lock (pending)
        {
            pending.RemoveAll(formatter => !formatter.TryGetTarget(out var found) || TryExtend(found));
            Volatile.Write(ref count, pending.Count);
        }
    }

    internal static string Extended(string template)
    {
        if (template.IndexOf(Token, StringComparison.Ordinal) >= 0)
        {
            return template;
        }
        var end = template.LastIndexOf(LineEnd, StringComparison.Ordinal);
        return template.Insert(end < 0 ? template.Length : end, " " + Token + "}");
    }

    // False while another thread constructs it.
    private static bool TryExtend(object formatter)
    {
        try
        {
            var field = Members.Field(formatter.GetType(), "_outputTemplate");
            var template = field?.GetValue(formatter);
            if (field != null && template == null)
            {
                return false;
            }
            if (templateText.ReadText(template) is { } text && Extended(text) is var extended && extended != text)
            {
                field!.SetValue(formatter, Parse(template!.GetType(), extended));
            }
        }
        catch (Exception exception) when (exception is not ThreadInterruptedException)
        {
            // Another version of the library: the formatter stays as it is.
        }
        return true;
    }

    private static object? Parse(Type template, string text)
    {
        var parser = Members.Beside(template, "Serilog.Parsing.MessageTemplateParser")!;
        return Members.Method(parser, "Parse", takes => takes.Length == 1)!.Invoke(Members.New(parser), [text]);
    }
}
