using System.Globalization;
using System.IO;

namespace Corvane.Sampling.Results;

// Writes JSON as it comes, without blanks; that its parts fit together is its user's affair.
internal sealed class JsonText
{
    private readonly TextWriter writer;
    private bool needsComma;

    internal JsonText(TextWriter writer) => this.writer = writer;

    internal JsonText BeginObject() => Begin('{');

    internal JsonText EndObject() => End('}');

    internal JsonText BeginArray() => Begin('[');

    internal JsonText EndArray() => End(']');

    internal JsonText Name(string name)
    {
        Value(name);
        writer.Write(':');
        needsComma = false;
        return this;
    }

    internal JsonText Value(string text)
    {
        Separate();
        writer.Write('"');
        for (var i = 0; i < text.Length; i++)
        {
            WriteCharacter(text, i);
        }
        writer.Write('"');
        return this;
    }

    internal JsonText Value(long number)
    {
        Separate();
        writer.Write(number.ToString(CultureInfo.InvariantCulture));
        return this;
    }

    private JsonText Begin(char bracket)
    {
        Separate();
        writer.Write(bracket);
        needsComma = false;
        return this;
    }

    private JsonText End(char bracket)
    {
        writer.Write(bracket);
        needsComma = true;
        return this;
    }

    private void Separate()
    {
        if (needsComma)
        {
            writer.Write(',');
        }
        needsComma = true;
    }

    private void WriteCharacter(string text, int index)
    {
        var character = text[index];
        if (character is '"' or '\\')
        {
            writer.Write('\\');
            writer.Write(character);
        }
        else if (char.IsControl(character) || Surrogates.IsLone(text, index))
        {
            writer.Write("\\u" + ((int)character).ToString("x4", CultureInfo.InvariantCulture));
        }
        else
        {
            writer.Write(character);
        }
    }
}

internal static class Surrogates
{
    // Whether it is half a character, which no encoding of Unicode can write.
    internal static bool IsLone(string text, int index) =>
        char.IsHighSurrogate(text[index])
            ? index + 1 == text.Length || !char.IsLowSurrogate(text[index + 1])
            : char.IsLowSurrogate(text[index]) && (index == 0 || !char.IsHighSurrogate(text[index - 1]));
}
