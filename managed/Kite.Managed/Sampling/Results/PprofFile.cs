using System.Collections.Generic;
using System.IO;
using System.IO.Compression;
using Corvane.Instrumentation.Export;

namespace Corvane.Sampling.Results;

// A file for pprof: Protocol Buffers, compressed. Each stack of a thread is a sample, with how often and how long the
// thread ran and waited there. A function is a location; nothing has an address. All that is gathered once stands at
// the end: the format leaves the order free.
internal sealed class PprofFile
{
    private const int Varint = 0;
    private const int Bounded = 2;

    // What the numbers of a sample are.
    private static readonly (string Type, string Unit)[] types =
    {
        ("running", "samples"), ("running_time", "nanoseconds"), ("waiting", "samples"), ("waiting_time", "nanoseconds"),
    };

    private readonly Stream stream;
    private readonly ByteText message = new ByteText();
    private readonly ByteText inner = new ByteText();
    private readonly ByteText innermost = new ByteText();
    private readonly Dictionary<string, int> texts = new Dictionary<string, int>();
    private readonly List<string> textsInOrder = new List<string>();
    private readonly Dictionary<string, int> functions = new Dictionary<string, int>();

    private PprofFile(Stream stream)
    {
        this.stream = stream;
        Text(""); // has to be the first one
    }

    internal static void Write(Stream stream, Profile profile)
    {
        using var zip = new GZipStream(stream, CompressionLevel.Optimal, leaveOpen: true);
        new PprofFile(zip).Write(profile);
    }

    private void Write(Profile profile)
    {
        foreach (var (type, unit) in types)
        {
            WriteType(1, type, unit);
        }
        foreach (var (thread, sums) in profile.Sums)
        {
            foreach (var (operation, ofOperation) in sums.ByOperation)
            {
                WriteStacks(thread.Thread.ToString(), operation?.Path ?? [], ofOperation);
            }
        }
        foreach (var function in functions)
        {
            Number(inner, 1, function.Value);
            Number(inner, 2, Text(function.Key));
            Finish(5);
            Number(innermost, 1, function.Value);
            Number(inner, 1, function.Value);
            Nest(4);
            Finish(4);
        }
        Number(message, 9, profile.Begin * 1000);
        Number(message, 10, profile.Cost.Duration.Ticks * 100);
        WriteType(11, types[0].Type, types[1].Unit);
        Number(message, 12, profile.Interval.Ticks * 100);
        Number(message, 13, Text(profile.ToString()));
        Number(message, 14, Text(types[0].Type));
        foreach (var text in textsInOrder)
        {
            inner.Utf8(text);
            Finish(6);
        }
    }

    private void WriteType(int field, string type, string unit)
    {
        Number(inner, 1, Text(type));
        Number(inner, 2, Text(unit));
        Finish(field);
    }

    // Operations are a label each, from the outermost on.
    private void WriteStacks(string thread, IReadOnlyCollection<string> operations, Dictionary<SampledStack, StackSum> sums)
    {
        foreach (var sum in sums)
        {
            for (var stack = sum.Key; stack.Function != null; stack = stack.Caller!)
            {
                Variable(innermost, Location(stack.Function.Name));
            }
            Nest(1);
            var (samples, microseconds) = (sum.Value.Samples, sum.Value.Microseconds);
            foreach (var value in new[] { samples.Running, microseconds.Running * 1000, samples.Waiting, microseconds.Waiting * 1000 })
            {
                Variable(innermost, value);
            }
            Nest(2);
            Label("thread", thread);
            foreach (var operation in operations)
            {
                Label("operation", operation);
            }
            Finish(2);
        }
    }

    private void Label(string key, string value)
    {
        Number(innermost, 1, Text(key));
        Number(innermost, 2, Text(value));
        Nest(3);
    }

    // Zero stands for none.
    private int Location(string name)
    {
        if (!functions.TryGetValue(name, out var number))
        {
            functions.Add(name, number = functions.Count + 1);
        }
        return number;
    }

    private int Text(string text)
    {
        if (!texts.TryGetValue(text, out var index))
        {
            texts.Add(text, index = textsInOrder.Count);
            textsInOrder.Add(text);
        }
        return index;
    }

    private void Nest(int field) => Move(innermost, inner, field);

    // To the file as well: it need not be in memory as a whole.
    private void Finish(int field)
    {
        Move(inner, message, field);
        message.WriteTo(stream);
        message.Clear();
    }

    private static void Move(ByteText from, ByteText to, int field)
    {
        Variable(to, (field << 3) | Bounded);
        Variable(to, from.Length);
        to.Append(from);
        from.Clear();
    }

    private static void Number(ByteText to, int field, long value)
    {
        Variable(to, (field << 3) | Varint);
        Variable(to, value);
    }

    private static void Variable(ByteText to, long value)
    {
        var rest = (ulong)value;
        for (; rest >= 0x80; rest >>= 7)
        {
            to.Byte((int)(rest & 0x7F) | 0x80);
        }
        to.Byte((int)rest);
    }
}
