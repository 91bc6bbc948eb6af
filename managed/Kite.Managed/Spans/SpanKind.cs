namespace Corvane.Instrumentation.Spans;

// The numbers are those of OTLP.
internal enum SpanKind : byte
{
    Internal = 1,
    Server = 2,
    Client = 3,
    Producer = 4,
    Consumer = 5,
}
