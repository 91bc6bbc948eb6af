using Corvane.Instrumentation.Spans;

namespace Corvane.Instrumentation.Export;

// OTLP as JSON: ids in hexadecimal digits, 64 bits as text, enumerations as numbers.
internal sealed class OtlpJson : IOtlpEncoding
{
    private bool needsComma;

    public string ContentType => "application/json";

    public ByteText Bytes { get; } = new ByteText();

    public void BeginAll()
    {
        Bytes.Byte('{');
        needsComma = false;
    }

    public void EndAll() => End('}');

    public void BeginList(Field field) => Begin(field, '[');

    public void EndList() => End(']');

    public void BeginItem(Field list)
    {
        Separate();
        Bytes.Byte('{');
        needsComma = false;
    }

    public void BeginMessage(Field field) => Begin(field, '{');

    public void EndMessage() => End('}');

    public void Trace(Field field, TraceId id) => Name(field).Byte('"').Hex(id.High).Hex(id.Low).Byte('"');

    public void Id(Field field, ulong id) => Name(field).Byte('"').Hex(id).Byte('"');

    public void Time(Field field, long nanoseconds) => Number(field, nanoseconds);

    public void Enum(Field field, int value) => Name(field).Decimal(value);

    public void Text(Field field, string text) => Name(field).Json(text);

    public void Number(Field field, long value) => Name(field).Byte('"').Decimal(value).Byte('"');

    public void Real(Field field, double value) => Name(field).Json(value);

    public void Truth(Field field, bool value) => Name(field).Ascii(value ? "true" : "false");

    private ByteText Name(Field field)
    {
        Separate();
        return Bytes.Byte('"').Ascii(field.Name).Ascii("\":");
    }

    private void Begin(Field field, char bracket)
    {
        Name(field).Byte(bracket);
        needsComma = false;
    }

    private void End(char bracket)
    {
        Bytes.Byte(bracket);
        needsComma = true;
    }

    private void Separate()
    {
        if (needsComma)
        {
            Bytes.Byte(',');
        }
        needsComma = true;
    }
}
