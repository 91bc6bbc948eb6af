using System;
using System.Collections.Generic;
using System.Globalization;
using Corvane.Instrumentation.Recording;

namespace Corvane.Instrumentation.Export;

// OpenTelemetry's variables. What is wrong with one is one line on standard error, in which none of its text stands that
// may be confidential; then it counts as not set.
internal sealed class Variables
{
    private const string TokenSigns = "!#$%&'*+-.^_`|~";

    private static readonly string[] otherHeadersOfContent = { "allow", "expires", "last-modified" };

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

    // One of some words, which the standard reads without regard to case.
    internal string? Choice(string name) => Text(name)?.ToLowerInvariant();

    // In milliseconds. 0 is none, as the standard has it.
    internal TimeSpan Timeout(string name, int otherwise) =>
        Number(name, otherwise) is > 0 and var most ? TimeSpan.FromMilliseconds(most) : TimeSpan.MaxValue;

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

    // Headers: name=value,name=value with values in percent encoding. What cannot be sent is left out.
    internal List<KeyValuePair<string, string>> Headers(string name)
    {
        var pairs = Pairs(name, key => IsHeader(key) ? key : null, out var wrong);
        if (wrong > 0)
        {
            Complain($"{wrong} of the pairs in {name} are no headers that can be sent: they are left out");
        }
        return pairs;
    }

    // Attributes: the same, with names in percent encoding as well. The standard takes all of them or none.
    internal List<KeyValuePair<string, string>> Attributes(string name)
    {
        var pairs = Pairs(name, key => Decode(key, out var decoded) ? decoded : null, out var wrong);
        if (wrong > 0)
        {
            Complain($"{wrong} of the pairs in {name} cannot be understood: none is taken");
            pairs.Clear();
        }
        return pairs;
    }

    private List<KeyValuePair<string, string>> Pairs(string name, Func<string, string?> read, out int wrong)
    {
        var pairs = new List<KeyValuePair<string, string>>();
        wrong = 0;
        foreach (var part in (Text(name) ?? "").Split(','))
        {
            if (part.Trim().Length == 0)
            {
                continue;
            }
            var sign = part.IndexOf('=');
            var key = sign < 0 ? null : read(part.Substring(0, sign).Trim());
            if (string.IsNullOrEmpty(key) || !Decode(part.Substring(sign + 1).Trim(), out var value))
            {
                wrong++;
                continue;
            }
            pairs.RemoveAll(pair => pair.Key == key);
            pairs.Add(new KeyValuePair<string, string>(key!, value));
        }
        return pairs;
    }

    // A token of HTTP. Those of the content say what the library sends, and are its own.
    private static bool IsHeader(string name) =>
        Array.TrueForAll(name.ToCharArray(), one => one < 128 && (char.IsLetterOrDigit(one) || TokenSigns.IndexOf(one) >= 0)) &&
        !name.StartsWith("content-", StringComparison.OrdinalIgnoreCase) &&
        !Array.Exists(otherHeadersOfContent, other => other.Equals(name, StringComparison.OrdinalIgnoreCase));

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
