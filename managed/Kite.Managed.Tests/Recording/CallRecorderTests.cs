// Which calls there are, and under which other one, whatever beginnings and ends arrive.
using System;
using System.Collections.Generic;
using System.Linq;
using System.Threading;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class CallRecorderTests
{
    private const int Threads = 8;

    private readonly RecordedCalls recording = new RecordedCalls().With(0, "Open").With(1, "Count").With(2, "Find");

    [Fact]
    public void CallsAreNestedAsTheyWereMade()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        recording.Leave(1, 3);
        recording.Enter(2, null, DayOfWeek.Monday);
        recording.Enter(0);
        recording.Leave(0);
        recording.Leave(2, "x");
        recording.Leave(0);
        recording.Enter(0);
        recording.Leave(0);
        Assert.Equal(
            [
                "thread 1",
                "  Kite.Managed.Tests.Shop.Open()",
                "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) = 3",
                "    Kite.Managed.Tests.Shop.Find(wanted: null, day: Monday) = \"x\"",
                "      Kite.Managed.Tests.Shop.Open()",
                "  Kite.Managed.Tests.Shop.Open()",
                "5 calls, 1 threads, 0 dropped",
            ],
            Tree());
    }

    [Fact]
    public void ACallThatDidNotEndSaysSo()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        Assert.Equal(
            [
                "thread 1", "  Kite.Managed.Tests.Shop.Open() ...",
                "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) ...", "2 calls, 1 threads, 0 dropped",
            ],
            Tree());
    }

    [Fact]
    public void AMissingEndCostsNoOtherCallItsOwn()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        recording.Leave(0);
        recording.Enter(2, null, DayOfWeek.Monday);
        recording.Leave(2);
        Assert.Equal(
            [
                "thread 1",
                "  Kite.Managed.Tests.Shop.Open()",
                "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) ...",
                "  Kite.Managed.Tests.Shop.Find(wanted: null, day: Monday) = null",
                "3 calls, 1 threads, 0 dropped",
            ],
            Tree());
    }

    [Fact]
    public void EndsThatAlwaysGoMissingDoNotFillTheMemory()
    {
        var thread = new ThreadCalls();
        for (uint index = 0; index <= 1_048_576; index++)
        {
            thread.Open(index, null);
        }
        Assert.Null(thread.Close(524_287));
        Assert.NotNull(thread.Close(1_048_576));
        Assert.NotNull(thread.Close(524_288));
        Assert.Null(thread.Note(new object()));
    }

    [Fact]
    public void AnEndWithoutABeginningIsACall()
    {
        recording.Enter(0);
        recording.Recorder.Leave(1, ["tea", 2], 5);
        recording.Leave(0);
        Assert.Equal(
            [
                "thread 1",
                "  Kite.Managed.Tests.Shop.Open()",
                "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) = 5",
                "2 calls, 1 threads, 0 dropped",
            ],
            Tree());
        Assert.Null(recording.Calls.Threads().Single().Root.FirstChild!.FirstChild!.Elapsed);
    }

    [Fact]
    public void TwoMethodsWithOneNumberAreRecordedUnderTheFirstOnesName()
    {
        recording.With(0, "Count");
        recording.Enter(0);
        recording.Enter(0, "tea", 2);
        recording.LeaveWith(0, ["tea", 2], 7);
        recording.Leave(0);
        Assert.Equal(
            [
                "thread 1",
                "  Kite.Managed.Tests.Shop.Open()",
                "    Kite.Managed.Tests.Shop.Open(arg0: ***, arg1: ***) = ***",
                "2 calls, 1 threads, 0 dropped",
            ],
            Tree());
    }

    [Fact]
    public void AMethodThatWasNeverRegisteredIsRecordedByItsNumber()
    {
        recording.Enter(uint.MaxValue, 1);
        recording.Leave(uint.MaxValue);
        Assert.Equal(["thread 1", "  method #4294967295(arg0: ***)", "1 calls, 1 threads, 0 dropped"], Tree());
    }

    [Fact]
    public void CallsBeyondTheCapacityAreCountedAndDoNotUpsetTheOthers()
    {
        var small = new RecordedCalls(capacity: 2).With(0, "Open").With(1, "Count");
        small.Enter(0);
        small.Enter(1, "tea", 2);
        small.Enter(1, "cake", 3);
        small.Enter(0);
        small.Leave(0);
        small.Throw(new InvalidOperationException());
        small.Finally();
        small.Leave(1, 2);
        small.Leave(0);
        small.Leave(0);
        Assert.Equal(
            [
                "thread 1",
                "  Kite.Managed.Tests.Shop.Open()",
                "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) = 2",
                "2 calls, 1 threads, 3 dropped",
            ],
            small.Tree());
    }

    [Fact]
    public void ATimeSpansWhatTheCallDid()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        Thread.Sleep(50);
        recording.Leave(1);
        recording.Leave(0);
        var outer = recording.Calls.Threads().Single().Root.FirstChild!;
        Assert.InRange(outer.FirstChild!.Elapsed!.Value, System.Diagnostics.Stopwatch.Frequency * 45 / 1000, long.MaxValue);
        Assert.True(outer.Elapsed >= outer.FirstChild.Elapsed);
    }

    [Fact]
    public void NothingIsLostWhenManyThreadsCall()
    {
        const int Rounds = 3000;
        RunOnThreads(recording, Rounds).ForEach(thread => thread.Join());
        var tree = Tree();
        Assert.Equal($"{Threads * Rounds * 3} calls, {Threads} threads, 0 dropped", tree.Last());
        for (var number = 1; number <= Threads; number++)
        {
            var lines = tree.SkipWhile(line => !line.StartsWith($"thread {number} ")).Take(1 + (Rounds * 3)).ToArray();
            var worker = lines[0].Split('"')[1]["worker ".Length..];
            var expected = Enumerable.Range(0, Rounds).SelectMany(round => new[]
            {
                "  Kite.Managed.Tests.Shop.Open()",
                $"    Kite.Managed.Tests.Shop.Count(kind: \"{worker}\", more: {round}) = {round}",
                "      Kite.Managed.Tests.Shop.Find(wanted: null, day: Monday) ! unknown",
            });
            Assert.Equal(expected, lines.Skip(1));
        }
    }

    [Fact]
    public void NothingIsCountedTwiceOrNotAtAllWhenManyThreadsCall()
    {
        const int Rounds = 50_000;
        var small = new RecordedCalls(capacity: 1000).With(0, "Open").With(1, "Count").With(2, "Find");
        RunOnThreads(small, Rounds).ForEach(thread => thread.Join());
        Assert.Equal(1000, small.Calls.Recorded);
        Assert.Equal((Threads * Rounds * 3) - 1000, small.Calls.Dropped);
        Assert.Equal(1000, small.Tree().Count(line => line.StartsWith("  ")));
    }

    [Fact]
    public void PrintingIsPossibleWhileThreadsCall()
    {
        var threads = RunOnThreads(recording, 300);
        do
        {
            Assert.EndsWith("dropped", Tree().Last());
        }
        while (threads.Any(thread => thread.IsAlive));
        Assert.Equal($"{Threads * 300 * 3} calls, {Threads} threads, 0 dropped", Tree().Last());
    }

    private static List<Thread> RunOnThreads(RecordedCalls recording, int rounds)
    {
        var start = new Barrier(Threads);
        var threads = Enumerable.Range(0, Threads).Select(number => new Thread(() =>
        {
            start.SignalAndWait();
            for (var round = 0; round < rounds; round++)
            {
                recording.Enter(0);
                recording.Enter(1, $"{number}", round);
                recording.Enter(2, null, DayOfWeek.Monday);
                recording.Throw(null);
                recording.Leave(1, round);
                recording.Leave(0);
            }
        }) { Name = $"worker {number}" }).ToList();
        threads.ForEach(thread => thread.Start());
        return threads;
    }

    private string[] Tree() => recording.Tree();

    [Fact]
    public void AHundredThousandCallsAreRecordedUnlessToldOtherwise()
    {
        for (var call = 0; call < 100_003; call++)
        {
            recording.Enter(0);
            recording.Leave(0);
        }
        Assert.Equal((100_000, 3), (recording.Calls.Recorded, recording.Calls.Dropped));
    }

    [Fact]
    public void ThreadsThatBeginAtOnceHaveEachItsNumber()
    {
        for (var round = 0; round < 50; round++)
        {
            var many = new RecordedCalls().With(0, "Open").With(1, "Count").With(2, "Find");
            RunOnThreads(many, 1).ForEach(thread => thread.Join());
            Assert.Equal(Enumerable.Range(1, Threads), many.Calls.Threads().Select(thread => thread.Number));
        }
    }
}
