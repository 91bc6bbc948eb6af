using System;
using System.Text;

namespace Corvane.Instrumentation.Privacy;

// A URL, a path or the address of a server without what may be confidential: user and password, the values of a query
// and of path parameters, what follows a secret name in the path, the fragment. When in doubt too much goes.
internal static class UrlText
{
    internal const int MaxRead = 2_048;

    private const int MaxName = 64;
    private const string Cut = "...";
    private const string Separators = "/\\";
    private const string PathEnds = "?#";

    private static readonly char[] marks = ['@', '=', ';', '&', '?', '#', '/', '\\'];

    internal static string Of(string url)
    {
        var isCut = url.Length > MaxRead;
        url = isCut ? url.Substring(0, MaxRead) : url;
        var result = new StringBuilder(url.Length);
        var path = AppendServer(result, url, isCut);
        var query = End(url, path, PathEnds);
        AppendPath(result, url.Substring(path, query - path));
        if (query < url.Length && url[query] == '?')
        {
            AppendQuery(result, url.Substring(query + 1, End(url, query, "#") - query - 1));
        }
        return result.Append(isCut ? Cut : "").ToString();
    }

    // All in front of the path. Returns where that begins.
    private static int AppendServer(StringBuilder result, string url, bool isCut)
    {
        var from = BehindScheme(url);
        if (from == 0 && (url.Length == 0 || "/\\?#.".IndexOf(url[0]) >= 0))
        {
            return 0;
        }
        result.Append(url, 0, from);
        var end = AppendAuthority(result, url, from, End(url, from, PathEnds), isCut);
        if (end < 0)
        {
            // A password may hold what usually ends it.
            end = AppendAuthority(result, url, from, url.Length, isCut);
        }
        if (end < 0)
        {
            result.Append(SecretText.Mask);
            end = url.Length;
        }
        return end;
    }

    // The last "@" in front of the limit ends the user. Returns where the server ends, or less than 0 if there is none.
    private static int AppendAuthority(StringBuilder result, string url, int from, int limit, bool isCut)
    {
        var at = limit == from ? -1 : url.LastIndexOf('@', limit - 1, limit - from);
        var server = Math.Max(from, at + 1);
        var end = End(url, server, Separators + PathEnds);
        if (!IsServer(url.Substring(server, end - server)) || (isCut && end == url.Length))
        {
            return -1;
        }
        result.Append(at < 0 ? "" : SecretText.Mask + "@").Append(url, server, end - server);
        return end;
    }

    private static int BehindScheme(string url)
    {
        var slashes = url.IndexOf("//", StringComparison.Ordinal);
        for (var position = 0; position < slashes - 1; position++)
        {
            if (!char.IsLetterOrDigit(url[position]) && "+-.".IndexOf(url[position]) < 0)
            {
                return 0;
            }
        }
        return slashes == 0 || (slashes > 1 && url[slashes - 1] == ':') ? slashes + 2 : 0;
    }

    // A name or address, perhaps with the number of a port. A file has an empty one.
    private static bool IsServer(string text)
    {
        var end = text.StartsWith("[", StringComparison.Ordinal) ? text.IndexOf(']') + 1 : End(text, 0, ":");
        for (var position = 0; position < end; position++)
        {
            if (!char.IsLetterOrDigit(text[position]) && "-._[]:".IndexOf(text[position]) < 0)
            {
                return false;
            }
        }
        for (var position = end + 1; position < text.Length; position++)
        {
            if (!char.IsDigit(text[position]))
            {
                return false;
            }
        }
        return end == text.Length || (end > 0 && text[end] == ':' && text.Length - end is > 1 and <= 6);
    }

    private static void AppendPath(StringBuilder result, string path)
    {
        var isSecret = false;
        for (var from = 0; from < path.Length;)
        {
            var end = End(path, from, Separators);
            var segment = path.Substring(from, end - from);
            if (segment.Length > 0)
            {
                var plain = segment.IndexOf('%') < 0 ? segment : Uri.UnescapeDataString(segment);
                AppendSegment(result, segment, isSecret || (plain != segment && plain.IndexOfAny(marks) >= 0));
                isSecret = SecretNames.IsSecret(plain);
            }
            result.Append(path, end, Math.Min(1, path.Length - end));
            from = end + 1;
        }
    }

    private static void AppendSegment(StringBuilder result, string segment, bool isSecret)
    {
        if (isSecret || segment.IndexOf('@') >= 0)
        {
            result.Append(SecretText.Mask);
            return;
        }
        var parts = segment.Split(';');
        for (var index = 0; index < parts.Length; index++)
        {
            result.Append(index == 0 ? "" : ";");
            if (index == 0 && parts[index].IndexOf('=') < 0)
            {
                result.Append(parts[index]);
            }
            else
            {
                AppendPair(result, parts[index]);
            }
        }
    }

    private static void AppendQuery(StringBuilder result, string query)
    {
        var mark = '?';
        foreach (var pair in query.Split('&', ';'))
        {
            AppendPair(result.Append(mark), pair);
            mark = '&';
        }
    }

    // Without a value, what looks like a name may be one, and "=" may be the end of a text in base 64.
    private static void AppendPair(StringBuilder result, string pair)
    {
        var equals = pair.IndexOf('=');
        if (equals > 0 && equals <= MaxName && IsName(pair, equals) && pair.Substring(equals).Trim('=').Length > 0)
        {
            result.Append(pair, 0, equals + 1).Append(SecretText.Mask);
        }
        else
        {
            result.Append(pair.Length > 0 ? SecretText.Mask : "");
        }
    }

    private static bool IsName(string text, int length)
    {
        for (var position = 0; position < length; position++)
        {
            if (!char.IsLetterOrDigit(text[position]) && "_-.[]$%".IndexOf(text[position]) < 0)
            {
                return false;
            }
        }
        return true;
    }

    private static int End(string text, int from, string ends)
    {
        var end = text.IndexOfAny(ends.ToCharArray(), from);
        return end < 0 ? text.Length : end;
    }
}
