using System;
using System.Text;

namespace Corvane.Instrumentation.Privacy;

// Takes out of a text what it says to be confidential: the values of pairs whose names say so, as in connection
// strings, queries, headers, JSON and XML; the user of a URL; what follows "Bearer" or "Basic"; a private key. When in
// doubt too much goes. A secret that nothing in the text names is not recognised.
internal static class SecretText
{
    internal const string Mask = "***";

    private const int MaxName = 64;

    private static readonly string[] schemes = ["Bearer ", "Basic "];

    // Looks at no more than `most` characters of the text.
    internal static string Redact(string text, int most)
    {
        var isCut = text.Length > most;
        text = isCut ? text.Substring(0, most) : text;
        var result = new StringBuilder(text.Length);
        var position = 0;
        while (position < text.Length)
        {
            var (from, to) = SecretAt(text, position, isCut);
            if (to > from)
            {
                result.Append(text, position, from - position).Append(Mask);
                position = to;
            }
            else
            {
                result.Append(text[position++]);
            }
        }
        return result.ToString();
    }

    // The secret that the characters at a position announce; it may begin behind them. Empty if there is none.
    private static (int From, int To) SecretAt(string text, int position, bool isCut)
    {
        switch (text[position])
        {
            case '=':
                return NamesSecret(text, position) ? Value(text, position + 1, ";&\r\n") : default;
            case ':' when StartsWith(text, position, "://"):
                return User(text, position + 3, isCut);
            case ':':
                return NamesSecret(text, position) ? Value(text, position + 1, "\r\n") : default;
            case '>':
                return NamesSecret(text, position) ? Value(text, position + 1, "<") : default;
            case '-' when StartsWith(text, position, "-----BEGIN "):
                return (position, text.Length);
            case 'B' or 'b':
                return Credentials(text, position);
            default:
                return default;
        }
    }

    // Whether what stands in front of a separator, perhaps in quotes, is a name of a secret.
    private static bool NamesSecret(string text, int separator)
    {
        var from = separator;
        while (from > 0 && separator - from < MaxName && IsOfName(text[from - 1]))
        {
            from--;
        }
        return SecretNames.IsSecret(text.Substring(from, separator - from));
    }

    private static bool IsOfName(char character) => char.IsLetterOrDigit(character) || character is '_' or '-' or '.' or ' ' or '"' or '\'' or '\\' or ']';

    // A value in quotes goes up to the quote that ends it, another one up to one of the ends.
    private static (int From, int To) Value(string text, int from, string ends)
    {
        while (from < text.Length && text[from] is ' ' or '\\')
        {
            from++;
        }
        if (from == text.Length || text[from] is not ('"' or '\''))
        {
            return (from, End(text, from, ends));
        }
        var quote = text[from];
        for (var position = from + 1; position < text.Length; position++)
        {
            if (text[position] == '\\')
            {
                position++;
            }
            else if (text[position] == quote)
            {
                return (from, position + 1);
            }
        }
        return (from, text.Length);
    }

    // A password may hold any character, so the last "@" counts. Of a text that was cut it may be missing.
    private static (int From, int To) User(string text, int from, bool isCut)
    {
        var end = End(text, from, " \t\r\n\"'<>");
        if (isCut && end == text.Length)
        {
            return (from, end);
        }
        var at = text.LastIndexOf('@', end - 1, end - from);
        return at > from ? (from, at) : default;
    }

    private static (int From, int To) Credentials(string text, int position)
    {
        if (position > 0 && char.IsLetterOrDigit(text[position - 1]))
        {
            return default;
        }
        foreach (var scheme in schemes)
        {
            if (StartsWith(text, position, scheme))
            {
                return (position + scheme.Length, End(text, position + scheme.Length, " \t\r\n\"',;"));
            }
        }
        return default;
    }

    private static int End(string text, int from, string ends)
    {
        var end = text.IndexOfAny(ends.ToCharArray(), from);
        return end < 0 ? text.Length : end;
    }

    private static bool StartsWith(string text, int position, string start) =>
        string.Compare(text, position, start, 0, start.Length, StringComparison.OrdinalIgnoreCase) == 0;
}
