using System;

namespace Corvane.Sampling;

// Names of functions as their authors know them: what the compiler made of an async method, an iterator, a lambda or a
// local function is shown as the method that it stands in.
internal static class FunctionNaming
{
    // The type with those that enclose it, if they are known.
    internal static string Name(string? type, string method)
    {
        type ??= "";
        var own = OwnName(type);
        if (method == "MoveNext" && Inside(own) is { } body)
        {
            method = body;
            type = Enclosing(type);
        }
        while (OwnName(type).StartsWith("<>c", StringComparison.Ordinal))
        {
            type = Enclosing(type);
        }
        method = Method(method);
        return type.Length == 0 ? method : type + "." + method;
    }

    // The method that a state machine of this name runs, as in "<PriceAsync>d__2".
    private static string? Inside(string type)
    {
        var end = type.LastIndexOf('>');
        return end > 1 && type[0] == '<' && end + 1 < type.Length && type[end + 1] == 'd' ? type.Substring(1, end - 1) : null;
    }

    // As in "<Main>b__0_1" for a lambda, "<Main>g__Add|0_0" for a local function, "<Main>$" and "<Main>".
    private static string Method(string method)
    {
        var end = method.LastIndexOf('>');
        if (end <= 1 || method[0] != '<')
        {
            return method;
        }
        var outer = Method(method.Substring(1, end - 1));
        var rest = method.Substring(end + 1);
        if (rest.StartsWith("b__", StringComparison.Ordinal))
        {
            return outer + " (lambda)";
        }
        var bar = rest.IndexOf('|');
        return rest.StartsWith("g__", StringComparison.Ordinal) && bar > 3 ? $"{outer} ({rest.Substring(3, bar - 3)})"
            : rest == "$" || (rest.Length == 0 && method.IndexOf('>') == end) ? outer
            : method;
    }

    private static string OwnName(string type) => type.Substring(End(type));

    private static string Enclosing(string type) => type.Substring(0, Math.Max(0, End(type) - 1));

    // Where a type's own name begins: behind the last dot that is not in angle brackets.
    private static int End(string type)
    {
        var depth = 0;
        for (var i = type.Length - 1; i >= 0; i--)
        {
            depth += type[i] == '>' ? 1 : type[i] == '<' ? -1 : 0;
            if (type[i] == '.' && depth <= 0)
            {
                return i + 1;
            }
        }
        return 0;
    }
}
