using System;
using System.Globalization;

namespace Corvane.Instrumentation.Spans;

// The number that all spans of one trace share, as W3C Trace Context has it: 16 bytes, not all zero.
internal readonly struct TraceId : IEquatable<TraceId>
{
    internal TraceId(ulong high, ulong low)
    {
        High = high;
        Low = low;
    }

    internal ulong High { get; }

    internal ulong Low { get; }

    internal bool IsNone => (High | Low) == 0;

    public bool Equals(TraceId other) => High == other.High && Low == other.Low;

    public override bool Equals(object? other) => other is TraceId id && Equals(id);

    public override int GetHashCode() => (High ^ Low).GetHashCode();

    public override string ToString() => SpanId.Text(High) + SpanId.Text(Low);
}

internal static class SpanId
{
    // As W3C Trace Context writes it.
    internal static string Text(ulong id) => id.ToString("x16", CultureInfo.InvariantCulture);
}
