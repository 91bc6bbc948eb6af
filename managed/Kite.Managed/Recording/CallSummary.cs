using System;
using System.Collections.Concurrent;
using System.Collections.Generic;
using System.Diagnostics;
using System.Globalization;
using System.IO;
using System.Linq;
using System.Threading;

namespace Corvane.Instrumentation.Recording;

// Figures of all calls by method, in memory that grows with the methods and not with the calls. Any thread.
internal sealed class CallSummary
{
    // Threads that call the same method at the same time seldom wait for each other.
    private const int Stripes = 4;

    private static readonly (string Title, int Width)[] columns =
    [
        ("calls", 9), ("errors", 8), ("total ms", 11), ("mean us", 11), ("p50 us", 11), ("p95 us", 11), ("p99 us", 11),
    ];

    private readonly ConcurrentDictionary<uint, Figures?[]> methods = new ConcurrentDictionary<uint, Figures?[]>();

    internal bool IsEmpty => methods.IsEmpty;

    // A call that ended. The duration is in timestamps.
    internal void Add(uint index, long duration, bool failed)
    {
        var figures = FiguresOf(index);
        lock (figures)
        {
            figures.Add(duration, failed);
        }
    }

    // The call that this thread added last returned after all.
    internal void TakeBackError(uint index)
    {
        var figures = FiguresOf(index);
        lock (figures)
        {
            figures.Errors--;
        }
    }

    // The methods that took most of the time first.
    internal void Write(TextWriter writer, MethodTable names, string? remark = null)
    {
        // Overloads have one name.
        var rows = new Dictionary<string, Figures>(StringComparer.Ordinal);
        foreach (var method in methods)
        {
            var name = names.Find(method.Key)?.Name ?? $"method #{method.Key}";
            if (!rows.TryGetValue(name, out var all))
            {
                rows.Add(name, all = new Figures());
            }
            foreach (var stripe in method.Value)
            {
                if (stripe != null)
                {
                    lock (stripe)
                    {
                        all.Add(stripe);
                    }
                }
            }
        }
        foreach (var (title, width) in columns)
        {
            writer.Write(title.PadLeft(width));
        }
        writer.WriteLine("  method");
        foreach (var row in rows.OrderByDescending(row => row.Value.Total).ThenBy(row => row.Key, StringComparer.Ordinal))
        {
            WriteRow(writer, row.Key, row.Value);
        }
        writer.WriteLine(FormattableString.Invariant(
            $"{rows.Sum(row => row.Value.Durations.Count)} calls, {rows.Sum(row => row.Value.Errors)} errors, {rows.Count} methods"));
        if (remark != null)
        {
            writer.WriteLine(remark);
        }
    }

    private Figures FiguresOf(uint index)
    {
        var stripes = methods.GetOrAdd(index, static _ => new Figures?[Stripes]);
        ref var stripe = ref stripes[Environment.CurrentManagedThreadId % Stripes];
        return stripe ?? Interlocked.CompareExchange(ref stripe, new Figures(), null) ?? stripe;
    }

    private static void WriteRow(TextWriter writer, string name, Figures figures)
    {
        var microseconds = 1e6 / Stopwatch.Frequency;
        var durations = figures.Durations;
        var values = new[]
        {
            durations.Count.ToString(CultureInfo.InvariantCulture),
            figures.Errors.ToString(CultureInfo.InvariantCulture),
            Text(figures.Total * microseconds / 1000),
            Text(figures.Total * microseconds / Math.Max(1, durations.Count)),
            Text(durations.Quantile(0.5) * microseconds),
            Text(durations.Quantile(0.95) * microseconds),
            Text(durations.Quantile(0.99) * microseconds),
        };
        for (var column = 0; column < columns.Length; column++)
        {
            writer.Write(values[column].PadLeft(columns[column].Width));
        }
        writer.WriteLine($"  {name}");
    }

    private static string Text(double value) => value.ToString("0.0", CultureInfo.InvariantCulture);

    private sealed class Figures
    {
        internal long Errors { get; set; }

        internal long Total { get; private set; }

        internal DurationHistogram Durations { get; } = new DurationHistogram();

        internal void Add(long duration, bool failed)
        {
            Durations.Add(duration);
            Total += Math.Max(0, duration);
            Errors += failed ? 1 : 0;
        }

        internal void Add(Figures other)
        {
            Durations.Add(other.Durations);
            Total += other.Total;
            Errors += other.Errors;
        }
    }
}
