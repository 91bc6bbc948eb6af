using System;
using System.Collections.Generic;
using System.Globalization;
using Corvane.Instrumentation.Recording;

namespace Corvane.Instrumentation.Export;

// OpenTelemetry's variables. What is wrong with one is one line on standard error, in which none of its text stands that
// may be confidential; then it counts as not set.
internal sealed class Variables
{
    private readonly Func<string, string?> find;

    internal Variables(Func<string, string?> find, Action<string> complain)
    {
        this.find = find;
        Complain = complain;
    }

    internal static Variables OfProcess { get; } =
        new Variables(Environment.GetEnvironmentVariable, what => Complaint.Write(what));

    internal Action<string> Complain { get; }

    // Null for one that is empty, as the standard has it.
    internal string? Text(string name) => find(name)?.Trim() is { Length: > 0 } text ? text : null;

    internal int Number(string name, int otherwise, int least = 0)
    {
        if (Text(name) is not { } text)
        {
            return otherwise;
        }
        if (int.TryParse(text, NumberStyles.None, CultureInfo.InvariantCulture, out var number) && number >= least)
        {
            return number;
        }
        Complain($"{name} is no number from {least} on: {otherwise} is taken");
        return otherwise;
    }

    // name=value,name=value with values in percent encoding.
    internal List<KeyValuePair<string, string>> Pairs(string name)
    {
        var pairs = new List<KeyValuePair<string, string>>();
        var wrong = 0;
        foreach (var part in (Text(name) ?? "").Split(','))
        {
            if (part.Trim().Length == 0)
            {
                continue;
            }
            var sign = part.IndexOf('=');
            var key = sign < 0 ? "" : part.Substring(0, sign).Trim();
            if (key.Length == 0 || !Decode(part.Substring(sign + 1).Trim(), out var value))
            {
                wrong++;
                continue;
            }
            pairs.RemoveAll(pair => pair.Key == key);
            pairs.Add(new KeyValuePair<string, string>(key, value));
        }
        if (wrong > 0)
        {
            Complain($"{wrong} of the pairs in {name} cannot be understood: they are left out");
        }
        return pairs;
    }

    // Fails where a percent sign has no two digits behind it.
    private static bool Decode(string text, out string value)
    {
        value = "";
        for (var sign = text.IndexOf('%'); sign >= 0; sign = text.IndexOf('%', sign + 1))
        {
            if (sign + 2 >= text.Length || !Uri.IsHexDigit(text[sign + 1]) || !Uri.IsHexDigit(text[sign + 2]))
            {
                return false;
            }
        }
        value = Uri.UnescapeDataString(text);
        return value.IndexOfAny(new[] { '\0', '\r', '\n' }) < 0;
    }
}
