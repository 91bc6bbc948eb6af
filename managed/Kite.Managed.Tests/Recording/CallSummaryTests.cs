// The figures by method, and when a call counts as an error.
using System;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Threading;
using System.Threading.Tasks;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class CallSummaryTests
{
    private readonly RecordedCalls recording =
        new RecordedCalls(capacity: null, summary: new CallSummary()).With(0, "Open").With(1, "Count").With(2, "Find");

    private static string[] Lines(CallSummary summary, MethodTable methods)
    {
        using var writer = new StringWriter();
        summary.Write(writer, methods);
        return writer.ToString().TrimEnd().Split(Environment.NewLine);
    }

    // Calls, errors and name of each row, by name, and the last line.
    private string[] Counts()
    {
        var lines = Lines(recording.Calls.Summary!, recording.Methods);
        return [.. lines[1..^1].Select(line => line.Split(' ', StringSplitOptions.RemoveEmptyEntries))
            .Select(parts => $"{parts[^1].Split('.')[^1]} {parts[0]} {parts[1]}").Order(), lines[^1]];
    }

    [Fact]
    public void TheTableHasTheFiguresOfEachMethod()
    {
        var summary = new CallSummary();
        var milli = Stopwatch.Frequency / 1000;
        for (var call = 1; call <= 100; call++)
        {
            summary.Add(1, call * milli, failed: call > 98);
        }
        summary.Add(0, milli / 2, failed: false);
        summary.Add(9, 10_000 * milli, failed: true);
        Assert.Equal(
            [
                "    calls  errors   total ms    mean us     p50 us     p95 us     p99 us  method",
                "        1       1    10000.0 10000000.0 10200547.3 10200547.3 10200547.3  method #9",
                "      100       2     5050.0    50500.0    48234.5    96469.0    96469.0  Kite.Managed.Tests.Shop.Count",
                "        1       0        0.5      500.0      507.9      507.9      507.9  Kite.Managed.Tests.Shop.Open",
                "102 calls, 3 errors, 3 methods",
            ],
            Lines(summary, recording.Methods));
    }

    [Fact]
    public void CallsAreCountedAsTheyEnd()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        recording.Leave(1, 3);
        recording.Enter(2);
        recording.Throw(new InvalidOperationException());
        recording.Enter(1, "tea", 2);
        recording.Leave(0);
        recording.Enter(0);
        Assert.Equal(["Count 1 0", "Find 1 1", "Open 1 0", "3 calls, 1 errors, 3 methods"], Counts());
        Assert.Equal(0, recording.Calls.Recorded);
        Assert.Empty(recording.Calls.Threads());
    }

    // An inner finally block threw another exception, which the method itself handled.
    [Fact]
    public void ACallThatReturnsAfterAllIsNoError()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        Assert.True(recording.Recorder.Fail(new InvalidOperationException()));
        recording.Finally();
        recording.Leave(1, 3);
        recording.Leave(0);
        Assert.Equal(["Count 1 0", "Open 1 0", "2 calls, 0 errors, 2 methods"], Counts());
    }

    [Fact]
    public void AnExceptionThatEndsTheProcessEndsItsCalls()
    {
        var exception = new InvalidOperationException();
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        Assert.True(recording.Recorder.Fail(exception));
        Assert.True(recording.Recorder.Fail(exception));
        recording.Calls.FinishAll();
        Assert.Equal(["Count 1 1", "Open 1 1", "2 calls, 2 errors, 2 methods"], Counts());
    }

    [Fact]
    public void OverloadsAreOneMethod()
    {
        recording.With(3, "Count").Enter(3, "tea", 1);
        recording.Leave(3);
        recording.Enter(1, "tea", 1);
        recording.Leave(1);
        Assert.Equal(["Count 2 0", "2 calls, 0 errors, 1 methods"], Counts());
    }

    [Fact]
    public void ManyThreadsLoseNothing()
    {
        var summary = new CallSummary();
        Parallel.For(0, 16, new ParallelOptions { MaxDegreeOfParallelism = 16 }, _ =>
        {
            for (var call = 0; call < 10_000; call++)
            {
                summary.Add((uint)(call % 3), call, failed: call % 2 == 0);
            }
        });
        Assert.Equal("160000 calls, 80000 errors, 3 methods", Lines(summary, recording.Methods)[^1]);
    }

    [Fact]
    public void NumbersLookTheSameInEveryCulture()
    {
        var before = Thread.CurrentThread.CurrentCulture;
        Thread.CurrentThread.CurrentCulture = new System.Globalization.CultureInfo("") { NumberFormat = { NumberDecimalSeparator = "," } };
        try
        {
            TheTableHasTheFiguresOfEachMethod();
        }
        finally
        {
            Thread.CurrentThread.CurrentCulture = before;
        }
    }
}
