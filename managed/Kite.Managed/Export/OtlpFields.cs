namespace Corvane.Instrumentation.Export;

// The fields that are written, with the number and the name that the definitions of OTLP give them.
internal static class OtlpFields
{
    internal static readonly Field ResourceSpans = new Field(1, "resourceSpans");

    internal static readonly Field Resource = new Field(1, "resource");
    internal static readonly Field ScopeSpans = new Field(2, "scopeSpans");
    internal static readonly Field ResourceAttributes = new Field(1, "attributes");

    internal static readonly Field Scope = new Field(1, "scope");
    internal static readonly Field Spans = new Field(2, "spans");
    internal static readonly Field ScopeName = new Field(1, "name");
    internal static readonly Field ScopeVersion = new Field(2, "version");

    internal static readonly Field TraceId = new Field(1, "traceId");
    internal static readonly Field SpanId = new Field(2, "spanId");
    internal static readonly Field ParentSpanId = new Field(4, "parentSpanId");
    internal static readonly Field Name = new Field(5, "name");
    internal static readonly Field Kind = new Field(6, "kind");
    internal static readonly Field Start = new Field(7, "startTimeUnixNano");
    internal static readonly Field End = new Field(8, "endTimeUnixNano");
    internal static readonly Field Attributes = new Field(9, "attributes");
    internal static readonly Field Events = new Field(11, "events");
    internal static readonly Field Status = new Field(15, "status");

    internal static readonly Field EventTime = new Field(1, "timeUnixNano");
    internal static readonly Field EventName = new Field(2, "name");
    internal static readonly Field EventAttributes = new Field(3, "attributes");

    internal static readonly Field StatusCode = new Field(3, "code");

    internal static readonly Field Key = new Field(1, "key");
    internal static readonly Field Value = new Field(2, "value");
    internal static readonly Field StringValue = new Field(1, "stringValue");
    internal static readonly Field BoolValue = new Field(2, "boolValue");
    internal static readonly Field IntValue = new Field(3, "intValue");
    internal static readonly Field DoubleValue = new Field(4, "doubleValue");
}

internal readonly struct Field
{
    internal Field(int number, string name)
    {
        Number = number;
        Name = name;
    }

    internal int Number { get; }

    internal string Name { get; }
}
