using System;
using System.Text;

namespace Corvane.Instrumentation.Privacy;

// The name of an operation as somebody else gave it: "GET /orders/{id}", "SELECT orders" or any other text. Words may be
// addresses, of which no values are shown. The parameters of a route have names only: "{key:int}" names no secret.
internal static class NameText
{
    internal const int MaxText = 256;

    private const int MaxRead = 1_024;

    internal static string Of(string name)
    {
        var isCut = name.Length > MaxRead;
        name = isCut ? name.Substring(0, MaxRead) : name;
        var result = new StringBuilder();
        var text = new StringBuilder();
        foreach (var word in (SqlText.OfQuery(name) ?? name).Split(' '))
        {
            text.Append(result.Length + text.Length == 0 ? "" : " ");
            if (IsRoute(word))
            {
                result.Append(SecretText.Redact(text.ToString(), MaxRead)).Append(word);
                text.Clear();
            }
            else
            {
                text.Append(IsAddress(word) ? UrlText.Of(word) : word);
            }
        }
        result.Append(SecretText.Redact(text.ToString(), MaxRead));
        if (isCut || result.Length > MaxText)
        {
            result.Length = Math.Min(result.Length, MaxText);
            result.Append("...");
        }
        return result.ToString();
    }

    private static bool IsAddress(string word) =>
        word.IndexOf('?') >= 0 || word.StartsWith("/", StringComparison.Ordinal) || word.IndexOf("//", StringComparison.Ordinal) >= 0;

    // A path with parameters in braces, and nothing outside of them that a path without values does not have.
    private static bool IsRoute(string word)
    {
        var depth = 0;
        var parts = 1;
        foreach (var character in word)
        {
            depth += character == '{' ? 1 : character == '}' ? -1 : 0;
            parts += character == '/' ? 1 : 0;
            var isOfRoute = depth == 0 ? char.IsLetterOrDigit(character) || "/}_-.~".IndexOf(character) >= 0 : "/\"'\\".IndexOf(character) < 0;
            if (depth < 0 || !isOfRoute)
            {
                return false;
            }
        }
        return parts > 1 && depth == 0 && word.IndexOf('{') >= 0 && (word.IndexOf('=') < 0 || !SecretNames.IsSecret(word));
    }
}
