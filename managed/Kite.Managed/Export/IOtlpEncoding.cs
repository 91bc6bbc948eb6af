using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// One of the two forms that OTLP has. What is in a list is written as messages of the list's field.
internal interface IOtlpEncoding
{
    string ContentType { get; }

    ByteText Bytes { get; }

    // The whole, around all fields.
    void BeginAll();

    void EndAll();

    void BeginList(Field field);

    void EndList();

    void BeginItem(Field list);

    void BeginMessage(Field field);

    void EndMessage();

    void Trace(Field field, TraceId id);

    void Id(Field field, ulong id);

    void Time(Field field, long nanoseconds);

    void Enum(Field field, int value);

    void Text(Field field, string text);

    void Number(Field field, long value);

    void Real(Field field, double value);

    void Truth(Field field, bool value);
}
