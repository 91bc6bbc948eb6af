using System;

namespace Corvane.Instrumentation.Spans;

// Random numbers for spans, from a generator a thread (xorshift128+), so that no thread waits for another one.
internal static class SpanIds
{
    [ThreadStatic]
    private static ulong first;

    [ThreadStatic]
    private static ulong second;

    internal static TraceId NewTrace() => new TraceId(Next(), Next());

    // Never 0, which stands for none.
    internal static ulong Next()
    {
        if ((first | second) == 0)
        {
            Seed();
        }
        ulong number;
        do
        {
            var mixed = first;
            var other = second;
            first = other;
            mixed ^= mixed << 23;
            second = mixed ^ other ^ (mixed >> 18) ^ (other >> 5);
            number = second + other;
        }
        while (number == 0);
        return number;
    }

    // Six bits of the platform's random number are always the same.
    private static void Seed()
    {
        first = BitConverter.ToUInt64(Guid.NewGuid().ToByteArray(), 0) ^ (ulong)DateTime.UtcNow.Ticks;
        second = BitConverter.ToUInt64(Guid.NewGuid().ToByteArray(), 8) | 1;
    }
}
