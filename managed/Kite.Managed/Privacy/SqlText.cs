using System;

namespace Corvane.Instrumentation.Privacy;

// What a database takes for a name and what for a string.
internal enum SqlDialect
{
    Unknown, // what is in double quotes may be a string, and a backslash in a string may take away what follows
    Standard, // what is in double quotes is a name, and a backslash is a character like any other one
    SqlServer, // also, what is in brackets is a name
}

// What the text of a query tells without its data: each literal is a "?", and there are no comments.
internal sealed class SqlText
{
    internal const int MaxRead = 16_384;
    internal const int MaxText = 2_048;

    internal SqlText(string text, string? operation, string? target)
    {
        Text = text;
        Operation = operation;
        Target = target;
    }

    internal string Text { get; }

    // In capitals; null if the first words are none that are known.
    internal string? Operation { get; }

    // The first table or procedure, without the quotes around its name.
    internal string? Target { get; }

    // Of a text that is a query, as far as its begin says; else null. Where the text comes from is not known.
    internal static string? OfQuery(string text)
    {
        var begin = text.TrimStart();
        if (begin.StartsWith("--", StringComparison.Ordinal) || begin.StartsWith("/*", StringComparison.Ordinal))
        {
            return Of(text, SqlDialect.Unknown).Text;
        }
        var first = 0;
        while (first < begin.Length && (char.IsLetter(begin[first]) || begin[first] == '('))
        {
            first++;
        }
        // A name such as "set-1" has no literals.
        if (first == begin.Length || !(char.IsWhiteSpace(begin[first]) || "'\"[*/@`$".IndexOf(begin[first]) >= 0))
        {
            return null;
        }
        var sql = Of(text, SqlDialect.Unknown);
        return sql.Operation == null ? null : sql.Text;
    }

    internal static SqlText Of(string text, SqlDialect dialect) => new SqlScanner(text, dialect).Read();
}
