using System;
using System.Text;

namespace Corvane.Instrumentation.Privacy;

// Takes out of a text what it says to be confidential: the values of pairs whose names say so, as in connection
// strings, queries, headers, JSON and XML; the user of a URL and the values of its query; what follows "Bearer" or
// "Basic"; a private key. When in doubt too much goes. A secret that nothing in the text names is not recognised.
internal static class SecretText
{
    internal const string Mask = "***";

    private const int MaxName = 64;
    private const string UrlEnds = " \t\r\n\"<>";
    private const string QueryEnds = UrlEnds + ";";

    private static readonly string[] schemes = ["Bearer ", "Basic "];

    // A text of which nothing is known: it may be a query.
    internal static string OfValue(string text, int most)
    {
        var begin = text.Length > most ? text.Substring(0, most) : text;
        return Redact(SqlText.OfQuery(begin) ?? text, most);
    }

    // Looks at no more than `most` characters of the text.
    internal static string Redact(string text, int most)
    {
        var isCut = text.Length > most;
        text = isCut ? text.Substring(0, most) : text;
        var result = new StringBuilder(text.Length);
        var isQuery = false;
        for (var position = 0; position < text.Length;)
        {
            if (text[position] == ':' && StartsWith(text, position, "://"))
            {
                position = AppendUrl(result, text, position, isCut);
                continue;
            }
            var (from, to) = SecretAt(text, position, isQuery);
            if (to > from)
            {
                result.Append(text, position, from - position).Append(Mask);
                position = to;
                continue;
            }
            isQuery = text[position] == '?' || (isQuery && QueryEnds.IndexOf(text[position]) < 0);
            result.Append(text[position++]);
        }
        return result.ToString();
    }

    // The secret that the characters at a position announce; it may begin behind them. Empty if there is none.
    private static (int From, int To) SecretAt(string text, int position, bool isQuery)
    {
        switch (text[position])
        {
            case '=':
                return NamesSecret(text, position) ? Value(text, position + 1, ";\r\n", isQuery) : default;
            case ':':
                return NamesSecret(text, position) ? Value(text, position + 1, "\r\n") : default;
            case '>' when EndsSecretTag(text, position):
                var end = text.IndexOf("</", position, StringComparison.Ordinal);
                return (position + 1, end < 0 ? text.Length : end);
            case '-' when StartsWith(text, position, "-----BEGIN "):
                return (position, text.Length);
            case 'B' or 'b':
                return Credentials(text, position);
            default:
                return default;
        }
    }

    // Behind the scheme. A connection string may go on behind the URL, but a ";" may also be part of a password, which
    // may go on anywhere. Returns where the URL ends.
    private static int AppendUrl(StringBuilder result, string text, int colon, bool isCut)
    {
        var from = colon + 3;
        var end = End(text, from, UrlEnds);
        var isClear = !isCut || end < text.Length;
        for (var pair = text.IndexOf(';', from, end - from); pair >= 0; pair = text.IndexOf(';', pair + 1, end - pair - 1))
        {
            if (StartsPair(text, pair + 1))
            {
                isClear = text.IndexOf('@', pair, end - pair) < 0;
                end = isClear ? pair : text.Length;
                break;
            }
        }
        var last = end;
        while (last > from && ",.)'".IndexOf(text[last - 1]) >= 0)
        {
            last--; // of the sentence around it
        }
        result.Append("://").Append(isClear ? UrlText.Of("//" + text.Substring(from, last - from)).Substring(2) : Mask);
        result.Append(text, last, end - last);
        return end;
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

    private static bool IsOfName(char character) =>
        char.IsLetterOrDigit(character) ||
        character is '_' or '-' or '.' or ' ' or '\t' or '"' or '\'' or '\\' or '[' or ']';

    // The tag's name, and its attributes as far as they are looked at.
    private static bool EndsSecretTag(string text, int position)
    {
        var from = text.LastIndexOf('<', position, Math.Min(position + 1, MaxName));
        return from >= 0 && from + 1 < position && text[from + 1] != '/' &&
            SecretNames.IsSecret(text.Substring(from, position - from));
    }

    // A value goes up to one of the ends, of which none counts in quotes. What stands behind the closing quote may
    // still be part of it: quotes are doubled in one format, and escaped in another one. In a query the next pair is an
    // end, too.
    private static (int From, int To) Value(string text, int from, string ends, bool isQuery = false)
    {
        while (from < text.Length && text[from] is ' ' or '\t' or '\r' or '\n' or '\\')
        {
            from++;
        }
        var end = from;
        while (end < text.Length && text[end] is '"' or '\'')
        {
            end = EndOfQuoted(text, end);
        }
        if (end > from)
        {
            return (from, End(text, end, ends + ",}]"));
        }
        if (end < text.Length && text[end] == '{')
        {
            end = EndOfBraces(text, end);
        }
        while (end < text.Length && ends.IndexOf(text[end]) < 0 && !(isQuery && text[end] == '&' && StartsPair(text, end + 1)))
        {
            end++;
        }
        return (from, end);
    }

    private static int EndOfQuoted(string text, int from)
    {
        for (var position = from + 1; position < text.Length; position++)
        {
            if (text[position] == '\\')
            {
                position++;
            }
            else if (text[position] == text[from])
            {
                return position + 1;
            }
        }
        return text.Length;
    }

    // A closing brace that is part of the value is doubled.
    private static int EndOfBraces(string text, int from)
    {
        for (var position = from + 1; position < text.Length; position++)
        {
            if (text[position] == '}' && position + 1 < text.Length && text[position + 1] == '}')
            {
                position++;
            }
            else if (text[position] == '}')
            {
                return position + 1;
            }
        }
        return text.Length;
    }

    private static bool StartsPair(string text, int from)
    {
        var end = from;
        while (end < text.Length && end - from < MaxName && (char.IsLetterOrDigit(text[end]) || text[end] is '_' or '-' or '.'))
        {
            end++;
        }
        return end > from && end < text.Length && text[end] == '=';
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
                var from = position + scheme.Length;
                while (from < text.Length && text[from] is ' ' or '\t' or '"' or '\'')
                {
                    from++;
                }
                return (from, End(text, from, " \t\r\n\"',;"));
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
