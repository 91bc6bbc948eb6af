namespace Corvane.Instrumentation.Spans;

// The numbers are those of OTLP.
internal enum SpanKind : byte
{
    None = 0, // no span
    Internal = 1,
    Server = 2,
    Client = 3,
    Producer = 4,
    Consumer = 5,
}
