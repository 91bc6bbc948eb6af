using System;
using System.IO;
using System.Linq;
using System.Threading;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class CallTreeTests
{
    private static void OnThread(string? name, Action action)
    {
        var thread = new Thread(() => action()) { Name = name };
        thread.Start();
        thread.Join();
    }

    [Fact]
    public void NothingRecordedIsOneLine() =>
        Assert.Equal(["0 calls, 0 threads, 0 dropped"], new RecordedCalls().Tree());

    [Fact]
    public void ThreadsAreInTheOrderOfTheirFirstCalls()
    {
        var recording = new RecordedCalls().With(0, "Open");
        OnThread("quiet", () => recording.Leave(0));
        OnThread(null, () => recording.Enter(0));
        OnThread("the \"last\"\n", () => recording.Enter(0));
        Assert.Equal(
            [
                "thread 1 \"quiet\"", "  Kite.Managed.Tests.Shop.Open()",
                "thread 2", "  Kite.Managed.Tests.Shop.Open() ...",
                "thread 3 \"the \\\"last\\\"\\n\"", "  Kite.Managed.Tests.Shop.Open() ...",
                "3 calls, 3 threads, 0 dropped",
            ],
            recording.Tree());
    }

    // While its calls are printed, a thread goes on: what it does then is even in the print.
    [Fact]
    public void AThreadGoesOnWhileItIsPrinted()
    {
        var recording = new RecordedCalls().With(0, "Open").With(1, "Count");
        using var isPrinting = new ManualResetEventSlim();
        using var hasBegun = new ManualResetEventSlim();
        var thread = new Thread(() =>
        {
            recording.Enter(0);
            recording.Leave(0);
            hasBegun.Set();
            isPrinting.Wait();
            recording.Enter(1, "tea", 2);
        });
        thread.Start();
        hasBegun.Wait();
        var writer = new InterruptedWriter(line =>
        {
            if (line.Contains("Shop.Open"))
            {
                isPrinting.Set();
                thread.Join();
            }
        });
        CallTree.Write(writer, recording.Calls, 0);
        Assert.Contains("Shop.Count(kind: \"tea\", more: 2) ...", writer.ToString());
    }

    private sealed class InterruptedWriter(Action<string> interrupt) : StringWriter
    {
        public override void WriteLine(string? value)
        {
            base.WriteLine(value);
            interrupt(value!);
        }
    }

    [Fact]
    public void DeepRecursionNeitherOverflowsNorGrowsWithItsSquare()
    {
        const int Depth = 50_000;
        var recording = new RecordedCalls().With(0, "Open");
        for (var depth = 0; depth < Depth; depth++)
        {
            recording.Enter(0);
        }
        for (var depth = 0; depth < Depth; depth++)
        {
            recording.Leave(0);
        }
        var lines = recording.Tree();
        Assert.Equal(Depth + 2, lines.Length);
        Assert.Equal(Enumerable.Range(1, Depth).Select(depth => 2 * Math.Min(depth, 100)),
            lines.Skip(1).Take(Depth).Select(line => line.Length - line.TrimStart().Length));
    }

    [Fact]
    public void FailuresAreToldOfOnlyIfThereAreAny()
    {
        var recording = new RecordedCalls();
        recording.Recorder.Log(0, "Failed while attempting to invoke the emitted IL");
        Assert.Equal(["0 calls, 0 threads, 0 dropped, 1 failures"], recording.Tree());
    }
}
