using System;
using System.Globalization;
using System.IO;

namespace Corvane.Instrumentation.Export;

// Bytes that grow at their end: UTF-8 text, or numbers as a binary format has them. Used again and again, so that
// writing takes nothing from the heap.
internal sealed class ByteText
{
    private const int Kept = 1 << 20;
    private const int MaxCharacter = 3; // bytes in UTF-8, for each half of a pair too
    private const string Digits = "0123456789abcdef";

    private byte[] bytes = new byte[4096];

    internal int Length { get; private set; }

    // What one large text needed is not kept for ever.
    internal void Clear()
    {
        Length = 0;
        if (bytes.Length > Kept)
        {
            bytes = new byte[4096];
        }
    }

    internal void WriteTo(Stream stream) => stream.Write(bytes, 0, Length);

    internal byte[] ToArray()
    {
        var copy = new byte[Length];
        Buffer.BlockCopy(bytes, 0, copy, 0, Length);
        return copy;
    }

    internal ByteText Byte(int value)
    {
        Reserve(1);
        bytes[Length++] = (byte)value;
        return this;
    }

    internal void Set(int position, int value) => bytes[position] = (byte)value;

    internal ByteText Append(ByteText other)
    {
        Reserve(other.Length);
        Buffer.BlockCopy(other.bytes, 0, bytes, Length, other.Length);
        Length += other.Length;
        return this;
    }

    // Text of ours, all of it ASCII.
    internal ByteText Ascii(string text)
    {
        Reserve(text.Length);
        foreach (var character in text)
        {
            bytes[Length++] = (byte)character;
        }
        return this;
    }

    internal ByteText Utf8(string text)
    {
        Reserve(text.Length * MaxCharacter);
        for (var position = 0; position < text.Length; position++)
        {
            position = Character(text, position);
        }
        return this;
    }

    // In quotes, with what JSON does not take in them escaped.
    internal ByteText Json(string text)
    {
        Reserve((text.Length * 6) + 2);
        bytes[Length++] = (byte)'"';
        for (var position = 0; position < text.Length; position++)
        {
            var character = text[position];
            if (character is '"' or '\\')
            {
                bytes[Length++] = (byte)'\\';
                bytes[Length++] = (byte)character;
            }
            else if (character is < ' ' or '\u007f' or '\u2028' or '\u2029')
            {
                Ascii("\\u").Hex(character, 4);
            }
            else
            {
                position = Character(text, position);
            }
        }
        bytes[Length++] = (byte)'"';
        return this;
    }

    internal ByteText Hex(ulong value, int digits = 16)
    {
        Reserve(digits);
        for (var shift = 4 * (digits - 1); shift >= 0; shift -= 4)
        {
            bytes[Length++] = (byte)Digits[(int)(value >> shift) & 15];
        }
        return this;
    }

    internal ByteText BigEndian(ulong value) => Ordered(value, bigEndian: true);

    internal ByteText LittleEndian(ulong value) => Ordered(value, bigEndian: false);

    internal ByteText Decimal(long value)
    {
        if (value < 0)
        {
            Byte('-');
        }
        return Decimal(value < 0 ? (ulong)-value : (ulong)value, 1);
    }

    // Zeros in front fill it up.
    internal ByteText Decimal(ulong value, int digits)
    {
        Reserve(20);
        var count = 1;
        for (var rest = value / 10; rest > 0; rest /= 10)
        {
            count++;
        }
        count = Math.Max(count, digits);
        for (var position = Length + count - 1; position >= Length; position--)
        {
            bytes[position] = (byte)('0' + (value % 10));
            value /= 10;
        }
        Length += count;
        return this;
    }

    // A number in JSON; what JSON has no number for is a text.
    internal ByteText Json(double value)
    {
        var text = value.ToString("R", CultureInfo.InvariantCulture);
        return double.IsNaN(value) ? Ascii("\"NaN\"")
            : double.IsInfinity(value) ? Ascii(value > 0 ? "\"Infinity\"" : "\"-Infinity\"")
            : Ascii(text);
    }

    private ByteText Ordered(ulong value, bool bigEndian)
    {
        Reserve(8);
        for (var index = 0; index < 8; index++)
        {
            bytes[Length++] = (byte)(value >> (8 * (bigEndian ? 7 - index : index)));
        }
        return this;
    }

    // The position of the last half of the character. A half alone becomes the mark for what is no character.
    private int Character(string text, int position)
    {
        int character = text[position];
        if (character < 0x80)
        {
            bytes[Length++] = (byte)character;
            return position;
        }
        if (char.IsSurrogate(text[position]))
        {
            if (char.IsHighSurrogate(text[position]) && position + 1 < text.Length && char.IsLowSurrogate(text[position + 1]))
            {
                character = char.ConvertToUtf32(text[position], text[position + 1]);
                bytes[Length++] = (byte)(0xF0 | (character >> 18));
                bytes[Length++] = (byte)(0x80 | ((character >> 12) & 0x3F));
                bytes[Length++] = (byte)(0x80 | ((character >> 6) & 0x3F));
                bytes[Length++] = (byte)(0x80 | (character & 0x3F));
                return position + 1;
            }
            character = 0xFFFD;
        }
        if (character < 0x800)
        {
            bytes[Length++] = (byte)(0xC0 | (character >> 6));
        }
        else
        {
            bytes[Length++] = (byte)(0xE0 | (character >> 12));
            bytes[Length++] = (byte)(0x80 | ((character >> 6) & 0x3F));
        }
        bytes[Length++] = (byte)(0x80 | (character & 0x3F));
        return position;
    }

    private void Reserve(int more)
    {
        if (Length + more > bytes.Length)
        {
            Array.Resize(ref bytes, Math.Max(2 * bytes.Length, Length + more));
        }
    }
}
