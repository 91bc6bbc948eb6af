using System;
using System.Globalization;
using System.Reflection;
using System.Text;
using Corvane.Instrumentation.Privacy;

namespace Corvane.Instrumentation.Recording;

// Values and exceptions as a line of the call tree shows them. Nothing of the program is ever called for it:
// of an object only its type is told, of an exception only the message that it was made with, since ToString
// and even Message may be the program's own. What is told is bounded in length. Any thread.
internal static class ValueText
{
    internal const int MaxString = 64;
    internal const int MaxMessage = 200;

    // As much of a text as is searched for secrets, of which no more than the lengths above is shown.
    internal const int MaxSearched = 1024;

    private static readonly FieldInfo? messageField =
        typeof(Exception).GetField("_message", BindingFlags.Instance | BindingFlags.NonPublic);

    internal static StringBuilder AppendValue(StringBuilder text, object? value, RecordedValues values) => value switch
    {
        null => text.Append("null"),
        string characters when values == RecordedValues.All => AppendQuoted(text, characters, isRedacted: true),
        string characters => AppendLength(text, characters.Length),
        char character when values == RecordedValues.All =>
            AppendEscaped(text.Append('\''), character.ToString(), '\'', 1).Append('\''),
        char => AppendLength(text, 1),
        bool truth => text.Append(truth ? "true" : "false"),
        Enum constant => text.Append(constant.ToString().Replace(", ", " | ")),
        double number => text.Append(number.ToString("R", CultureInfo.InvariantCulture)),
        float number => text.Append(number.ToString("R", CultureInfo.InvariantCulture)),
        decimal number => text.Append(number.ToString(CultureInfo.InvariantCulture)),
        int number => text.Append(number.ToString(CultureInfo.InvariantCulture)),
        long number => text.Append(number.ToString(CultureInfo.InvariantCulture)),
        short number => text.Append(number.ToString(CultureInfo.InvariantCulture)),
        sbyte number => text.Append(number.ToString(CultureInfo.InvariantCulture)),
        byte or ushort or uint or ulong =>
            text.Append(Convert.ToUInt64(value, CultureInfo.InvariantCulture).ToString(CultureInfo.InvariantCulture)),
        IntPtr number => text.Append("0x").Append(number.ToInt64().ToString("X", CultureInfo.InvariantCulture)),
        UIntPtr number => text.Append("0x").Append(number.ToUInt64().ToString("X", CultureInfo.InvariantCulture)),
        DateTime time => text.Append(time.ToString("O", CultureInfo.InvariantCulture)),
        DateTimeOffset time => text.Append(time.ToString("O", CultureInfo.InvariantCulture)),
        TimeSpan time => text.Append(time.ToString("c", CultureInfo.InvariantCulture)),
        Guid id => text.Append(id.ToString("D", CultureInfo.InvariantCulture)),
        _ => text.Append('{').Append(TypeNames.Of(value.GetType())).Append('}'),
    };

    internal static StringBuilder AppendException(StringBuilder text, Exception? exception, RecordedValues values)
    {
        if (exception == null)
        {
            return text.Append("unknown");
        }
        text.Append(TypeNames.Of(exception.GetType()));
        return Message(exception, values) is { } message ? text.Append(": ").Append(message) : text;
    }

    // As the exception was made with it; null if there is none, or none is to be recorded.
    internal static string? Message(Exception exception, RecordedValues values) =>
        values == RecordedValues.All && messageField?.GetValue(exception) is string { Length: > 0 } message &&
        !SecretExceptions.Contain(exception)
            ? AppendText(new StringBuilder(), message, '\0', MaxMessage, isRedacted: true).ToString()
            : null;

    internal static StringBuilder AppendQuoted(StringBuilder text, string characters, bool isRedacted = false) =>
        AppendText(text, characters, '"', MaxString, isRedacted);

    private static StringBuilder AppendLength(StringBuilder text, int length) =>
        text.Append('{').Append(length.ToString(CultureInfo.InvariantCulture)).Append(length == 1 ? " character}" : " characters}");

    // Dots follow where the text went on.
    private static StringBuilder AppendText(StringBuilder text, string characters, char quote, int most, bool isRedacted)
    {
        var shown = isRedacted ? SecretText.OfValue(characters, MaxSearched) : characters;
        var isCut = shown.Length > most || characters.Length > MaxSearched;
        text.Append(quote == '\0' ? "" : quote.ToString());
        AppendEscaped(text, shown, quote, most);
        return text.Append(quote == '\0' ? "" : quote.ToString()).Append(isCut ? "..." : "");
    }

    // What would end the line, or cannot be written, is escaped as in C#.
    private static StringBuilder AppendEscaped(StringBuilder text, string characters, char quote, int most)
    {
        var count = Math.Min(characters.Length, most);
        if (count < characters.Length && char.IsSurrogatePair(characters[count - 1], characters[count]))
        {
            count--;
        }
        for (var position = 0; position < count; position++)
        {
            var character = characters[position];
            if (position + 1 < count && char.IsSurrogatePair(character, characters[position + 1]))
            {
                text.Append(character).Append(characters[++position]);
                continue;
            }
            switch (character)
            {
                case '\n': text.Append("\\n"); break;
                case '\r': text.Append("\\r"); break;
                case '\t': text.Append("\\t"); break;
                case '\0': text.Append("\\0"); break;
                case '\\' when quote != '\0': text.Append("\\\\"); break;
                default:
                    if (character == quote)
                    {
                        text.Append('\\').Append(character);
                    }
                    else if (char.IsControl(character) || char.IsSurrogate(character) ||
                             character is '\u2028' or '\u2029')
                    {
                        text.Append("\\u").Append(((int)character).ToString("X4", CultureInfo.InvariantCulture));
                    }
                    else
                    {
                        text.Append(character);
                    }
                    break;
            }
        }
        return text;
    }
}
