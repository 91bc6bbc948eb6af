using System;
using System.Globalization;
using System.Reflection;
using System.Text;

namespace Corvane.Instrumentation.Recording;

// Values and exceptions as a line of the call tree shows them. Nothing of the program is ever called for it:
// of an object only its type is told, of an exception only the message that it was made with, since ToString
// and even Message may be the program's own. What is told is bounded in length. Any thread.
internal static class ValueText
{
    internal const int MaxString = 64;
    internal const int MaxMessage = 200;

    private static readonly FieldInfo? messageField =
        typeof(Exception).GetField("_message", BindingFlags.Instance | BindingFlags.NonPublic);

    internal static StringBuilder AppendValue(StringBuilder text, object? value) => value switch
    {
        null => text.Append("null"),
        string characters => AppendQuoted(text, characters),
        bool truth => text.Append(truth ? "true" : "false"),
        char character => AppendEscaped(text.Append('\''), character.ToString(), '\'', 1).Append('\''),
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
        _ => text.Append('{').Append(TypeNames.Of(value.GetType())).Append('}'),
    };

    internal static StringBuilder AppendException(StringBuilder text, Exception? exception)
    {
        if (exception == null)
        {
            return text.Append("unknown");
        }
        text.Append(TypeNames.Of(exception.GetType()));
        if (messageField?.GetValue(exception) is string { Length: > 0 } message)
        {
            AppendEscaped(text.Append(": "), message, '\0', MaxMessage);
            text.Append(message.Length > MaxMessage ? "..." : "");
        }
        return text;
    }

    internal static StringBuilder AppendQuoted(StringBuilder text, string characters)
    {
        AppendEscaped(text.Append('"'), characters, '"', MaxString).Append('"');
        return text.Append(characters.Length > MaxString ? "..." : "");
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
