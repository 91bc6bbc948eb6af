using System;
using System.Collections.Generic;
using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// OTLP in the binary format of Protocol Buffers.
internal sealed class OtlpProtobuf : IOtlpEncoding
{
    private const int Varint = 0;
    private const int Fixed64 = 1;
    private const int Bounded = 2;

    // A message's length stands in front of it and is not known there: it takes this many bytes, whatever it is.
    private const int LengthBytes = 4;

    private readonly Stack<int> messages = new Stack<int>();

    public string ContentType => "application/x-protobuf";

    public ByteText Bytes { get; } = new ByteText();

    public void BeginAll() => messages.Clear();

    public void EndAll()
    {
    }

    public void BeginList(Field field)
    {
    }

    public void EndList()
    {
    }

    public void BeginItem(Field list) => BeginMessage(list);

    public void BeginMessage(Field field)
    {
        Tag(field, Bounded);
        for (var index = 0; index < LengthBytes; index++)
        {
            Bytes.Byte(0);
        }
        messages.Push(Bytes.Length);
    }

    public void EndMessage()
    {
        var begin = messages.Pop();
        var length = Bytes.Length - begin;
        for (var index = 0; index < LengthBytes; index++)
        {
            var more = index < LengthBytes - 1 ? 0x80 : 0;
            Bytes.Set(begin - LengthBytes + index, ((length >> (7 * index)) & 0x7F) | more);
        }
    }

    public void Trace(Field field, TraceId id)
    {
        Tag(field, Bounded);
        Bytes.Byte(16).BigEndian(id.High).BigEndian(id.Low);
    }

    public void Id(Field field, ulong id)
    {
        Tag(field, Bounded);
        Bytes.Byte(8).BigEndian(id);
    }

    public void Time(Field field, long nanoseconds)
    {
        Tag(field, Fixed64);
        Bytes.LittleEndian((ulong)nanoseconds);
    }

    public void Enum(Field field, int value) => Number(field, value);

    public void Text(Field field, string text)
    {
        BeginMessage(field);
        Bytes.Utf8(text);
        EndMessage();
    }

    public void Number(Field field, long value)
    {
        Tag(field, Varint);
        Variable((ulong)value);
    }

    public void Real(Field field, double value)
    {
        Tag(field, Fixed64);
        Bytes.LittleEndian((ulong)BitConverter.DoubleToInt64Bits(value));
    }

    public void Truth(Field field, bool value) => Number(field, value ? 1 : 0);

    private void Tag(Field field, int type) => Variable((ulong)((field.Number << 3) | type));

    private void Variable(ulong value)
    {
        for (; value >= 0x80; value >>= 7)
        {
            Bytes.Byte((int)(value & 0x7F) | 0x80);
        }
        Bytes.Byte((int)value);
    }
}
