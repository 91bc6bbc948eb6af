using System;
using System.Text;

namespace Corvane.Instrumentation.Privacy;

// Reads the text of a query once, from its begin to its end. What cannot be told apart for sure ends the result, for
// what follows might be inside of a literal.
internal sealed class SqlScanner
{
    private const char Literal = '?';
    private const string Cut = "...";

    // As long as any database lets a name be.
    private const int MaxName = 128;

    // Passwords and keys may stand behind them without quotes, or as if they were names.
    private static readonly string[] beforeSecret = ["IDENTIFIED", "PRAGMA"];

    private static readonly string[] operations =
    [
        "SELECT", "INSERT", "UPDATE", "DELETE", "MERGE", "EXEC", "EXECUTE", "CALL", "REPLACE", "CREATE", "ALTER", "DROP",
        "TRUNCATE", "COMMIT", "ROLLBACK", "GRANT", "REVOKE", "PRAGMA", "USE", "WITH", "SET", "DECLARE", "BEGIN", "EXPLAIN",
    ];

    // With SQL Server, a first word that is none of these or of those above is the name of a procedure.
    private static readonly string[] beginnings =
    [
        "IF", "WHILE", "PRINT", "RAISERROR", "THROW", "WAITFOR", "OPEN", "FETCH", "CLOSE", "DEALLOCATE", "BACKUP", "RESTORE", "DBCC",
        "SAVE", "DENY", "BULK", "RETURN",
    ];

    // These only lead to an operation, which is one of the first in the list.
    private static readonly string[] preludes = ["WITH", "SET", "DECLARE", "BEGIN", "EXPLAIN"];
    private const int MainOperations = 8;

    private static readonly string[] beforeTarget = ["FROM", "INTO", "UPDATE", "TABLE", "EXEC", "EXECUTE", "CALL", "MERGE"];
    private static readonly string[] insideTarget = ["INTO", "IF", "NOT", "EXISTS", "ONLY", "TABLE"];

    private readonly string text;
    private readonly SqlDialect dialect;
    private readonly int end;
    private readonly StringBuilder result = new StringBuilder();
    private string operation = "";
    private string? target;
    private int position;
    private int depth;
    private bool hasWords;
    private bool isCut;
    private bool followsIn;
    private bool isInList;
    private Procedure procedure;
    private TargetState targetState;

    internal SqlScanner(string text, SqlDialect dialect)
    {
        this.text = text;
        this.dialect = dialect;
        end = Math.Min(text.Length, SqlText.MaxRead);
    }

    internal SqlText Read()
    {
        while (position < end && !isCut && result.Length < SqlText.MaxText)
        {
            Next();
        }
        if (isCut || position < text.Length || result.Length > SqlText.MaxText)
        {
            result.Length = Math.Min(result.Length, SqlText.MaxText);
            result.Append(Cut);
        }
        return new SqlText(result.ToString().TrimEnd(), operation.Length > 0 ? operation : null, target);
    }

    // A call of one: to some databases what stands bare or in double quotes behind its name is a string.
    private enum Procedure
    {
        None,
        Awaited,
        Named,
    }

    private enum TargetState
    {
        None,
        Awaited,
        Begun, // a dot may follow
        Continued, // behind a dot
        Known,
    }

    private void Next()
    {
        var character = text[position];
        if (char.IsWhiteSpace(character))
        {
            position++;
            AppendSpace();
        }
        else if (IsOfWord(character) && !char.IsDigit(character))
        {
            ReadWord();
        }
        else if (char.IsDigit(character) || (character == '.' && char.IsDigit(At(position + 1))))
        {
            ReadNumber();
        }
        else
        {
            ReadMark(character);
        }
    }

    private void ReadMark(char character)
    {
        switch (character)
        {
            case '\'':
                ReadString('\'');
                break;
            case '"' when dialect == SqlDialect.Unknown:
                ReadString('"');
                break;
            case '"':
                ReadQuotedName('"');
                break;
            case '[' when dialect == SqlDialect.SqlServer:
                ReadQuotedName(']');
                break;
            case '[' when dialect == SqlDialect.Unknown:
                ReadPlainName(']');
                break;
            case '`' when dialect == SqlDialect.Unknown:
                ReadPlainName('`');
                break;
            case '-' when At(position + 1) == '-':
                SkipLine();
                break;
            case '#' when dialect == SqlDialect.Unknown: // a comment, an operator or part of a name
                isCut = true;
                break;
            case '/' when At(position + 1) == '*':
                SkipComment();
                break;
            case '$':
                ReadDollar();
                break;
            default:
                AppendMark(character);
                break;
        }
    }

    private void AppendMark(char character)
    {
        position++;
        result.Append(character);
        switch (character)
        {
            case '(':
                depth++;
                isInList |= followsIn;
                break;
            case ')':
                depth--;
                isInList = false;
                break;
        }
        followsIn = false;
        procedure = character == ';' ? Procedure.None : procedure;
        targetState = character == '.' && targetState == TargetState.Begun ? TargetState.Continued : AfterTarget();
    }

    private void AppendSpace()
    {
        if (result.Length > 0 && result[result.Length - 1] != ' ')
        {
            result.Append(' ');
        }
        if (targetState == TargetState.Begun)
        {
            targetState = TargetState.Known;
        }
    }

    // Of the literals of an IN list one is left.
    private void AppendLiteral()
    {
        var last = result.Length - 1;
        last -= last >= 0 && result[last] == ' ' ? 1 : 0;
        if (isInList && result[last] == ',' && result[last - 1] == Literal)
        {
            result.Length = last;
        }
        else
        {
            result.Append(Literal);
        }
        followsIn = false;
        targetState = AfterTarget();
    }

    private TargetState AfterTarget() => target == null ? TargetState.None : TargetState.Known;

    private void ReadWord()
    {
        var from = position;
        while (position < end && (IsOfWord(text[position]) || text[position] is '$'))
        {
            position++;
        }
        var word = text.Substring(from, position - from);
        if (At(position) == '\'' && ReadPrefixed(word))
        {
            return;
        }
        var capitals = word.ToUpperInvariant();
        if (!ReadOfProcedure(from, capitals))
        {
            return;
        }
        result.Append(word);
        FindOperation(capitals);
        isCut = Array.IndexOf(beforeSecret, capitals) >= 0;
        FindTarget(word, capitals);
        followsIn = capitals == "IN";
    }

    // False for what may be an argument of a procedure, which ends the text. The parts of a name have a dot between them,
    // and variables begin with a mark.
    private bool ReadOfProcedure(int from, string word)
    {
        var before = from > 0 ? text[from - 1] : '\0';
        if (dialect == SqlDialect.Standard || before is '@')
        {
            return true;
        }
        if (procedure == Procedure.Named && before != '.')
        {
            isCut = true;
            return false;
        }
        var isFirst = !hasWords && dialect == SqlDialect.SqlServer && Array.IndexOf(operations, word) < 0 && Array.IndexOf(beginnings, word) < 0;
        procedure = word is "EXEC" or "EXECUTE" ? Procedure.Awaited
            : isFirst || procedure == Procedure.Awaited ? Procedure.Named
            : procedure;
        return true;
    }

    // What stands directly in front of a quote may decide how the string is to be read. False for any other word.
    private bool ReadPrefixed(string word)
    {
        switch (word.ToUpperInvariant())
        {
            case "N" or "B" or "X":
                ReadString('\'');
                return true;
            case "E" when dialect != SqlDialect.Unknown:
                ReadString('\'', isEscape: true);
                return true;
            case "Q" or "NQ" when dialect != SqlDialect.Unknown:
                ReadDelimited();
                return true;
            case "E" or "Q" or "NQ":
                isCut = true;
                return true;
            default:
                return false;
        }
    }

    private void FindOperation(string word)
    {
        var index = Array.IndexOf(operations, word);
        var isLater = depth == 0 && index < MainOperations && Array.IndexOf(preludes, operation) >= 0;
        if (index >= 0 && (!hasWords || isLater))
        {
            operation = word;
        }
        hasWords = true;
    }

    private void FindTarget(string name, string word)
    {
        switch (targetState)
        {
            case TargetState.Awaited when Array.IndexOf(insideTarget, word) < 0:
            case TargetState.Continued:
                target = target == null ? name : target + "." + name;
                targetState = TargetState.Begun;
                break;
            case TargetState.None when depth == 0 && Array.IndexOf(beforeTarget, word) >= 0:
                targetState = TargetState.Awaited;
                break;
        }
    }

    private void ReadNumber()
    {
        while (position < end)
        {
            var character = text[position];
            var isExponent = character is '+' or '-' && text[position - 1] is 'e' or 'E';
            if (!IsOfWord(character) && character != '.' && !isExponent)
            {
                break;
            }
            position++;
        }
        AppendLiteral();
    }

    // A doubled quote is part of the string. A backslash may take the quote behind it away, or may not.
    private void ReadString(char quote, bool isEscape = false)
    {
        for (position++; position < end; position++)
        {
            var character = text[position];
            var next = At(position + 1);
            if (character == '\\' && (isEscape || dialect == SqlDialect.Unknown))
            {
                if (next == quote && !isEscape)
                {
                    break;
                }
                // Of two, to some databases the second one is taken away; neither takes anything else away.
                position += isEscape || next == '\\' ? 1 : 0;
            }
            else if (character == quote && next == quote)
            {
                position++;
            }
            else if (character == quote)
            {
                position++;
                AppendLiteral();
                return;
            }
        }
        AppendLiteral();
        isCut = true;
    }

    // q'[...]': up to the same mark, or to the one that closes it.
    private void ReadDelimited()
    {
        const string opening = "[({<";
        const string closing = "])}>";
        var mark = At(position + 1);
        var pair = opening.IndexOf(mark);
        EndLiteral(position + 2, (pair < 0 ? mark : closing[pair]) + "'");
    }

    private void ReadDollar()
    {
        var to = position + 1;
        while (to < end && IsOfWord(text[to]) && to - position <= MaxName)
        {
            to++;
        }
        if (char.IsDigit(At(position + 1)))
        {
            position++;
            ReadNumber();
        }
        else if (At(to) == '$')
        {
            EndLiteral(to + 1, text.Substring(position, to + 1 - position));
        }
        else
        {
            AppendMark('$');
        }
    }

    private void EndLiteral(int from, string mark)
    {
        var at = from < end ? text.IndexOf(mark, from, end - from, StringComparison.Ordinal) : -1;
        isCut = at < 0;
        position = isCut ? end : at + mark.Length;
        AppendLiteral();
    }

    private void ReadQuotedName(char closing)
    {
        for (var to = position + 1; to < end && to - position <= 2 * MaxName; to++)
        {
            if (text[to] == closing && At(to + 1) != closing)
            {
                AppendName(to);
                return;
            }
            to += text[to] == closing ? 1 : 0;
        }
        isCut = true;
    }

    // A name that no database can take for anything else.
    private void ReadPlainName(char closing)
    {
        var to = position + 1;
        while (to < end && to - position <= MaxName && (IsOfWord(text[to]) || text[to] == ' '))
        {
            to++;
        }
        if (At(to) == closing && !char.IsDigit(At(position + 1)))
        {
            AppendName(to);
        }
        else
        {
            isCut = true;
        }
    }

    private void AppendName(int closing)
    {
        if (!ReadOfProcedure(position, ""))
        {
            return;
        }
        result.Append(text, position, closing + 1 - position);
        hasWords = true;
        FindTarget(text.Substring(position + 1, closing - position - 1), "");
        position = closing + 1;
        followsIn = false;
    }

    // A database may take the dashes for two signs, and a lone carriage return for the end of the line or not.
    private void SkipLine()
    {
        if (dialect == SqlDialect.Unknown && position + 2 < end && !char.IsWhiteSpace(text[position + 2]))
        {
            isCut = true;
            return;
        }
        var at = text.IndexOf('\n', position, end - position);
        var to = at < 0 ? end : at;
        var lineEnd = text.IndexOf('\r', position, to - position);
        isCut = lineEnd >= 0 && lineEnd + 1 < to;
        position = to;
        AppendSpace();
    }

    // To some databases comments nest.
    private void SkipComment()
    {
        var from = position + 2;
        var at = from < end ? text.IndexOf("*/", from, end - from, StringComparison.Ordinal) : -1;
        if (at < 0 || text.IndexOf("/*", from, at + 1 - from, StringComparison.Ordinal) >= 0)
        {
            isCut = true;
            return;
        }
        position = at + 2;
        AppendSpace();
    }

    private char At(int index) => index < end ? text[index] : '\0';

    private bool IsOfWord(char character) =>
        char.IsLetterOrDigit(character) || character == '_' || (character == '#' && dialect == SqlDialect.SqlServer);
}
