// Which calls an exception ended, and what was called meanwhile. The runtime tells of an exception twice: as it
// looks for a handler, from the innermost call outwards, and as the calls up to the handler end.
using System;
using System.Diagnostics;
using System.Linq;
using System.Threading;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class FailedCallsTests
{
    private readonly RecordedCalls recording = new RecordedCalls().With(0, "Open").With(1, "Count").With(2, "Find");
    private readonly Exception exception = new ArgumentException("no tea");
    private readonly Exception another = new InvalidOperationException("no cake");

    [Fact]
    public void AnExceptionEndsTheCallsThatItLeaves()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        recording.Enter(2, null, DayOfWeek.Monday);
        Fail(exception, 2);
        recording.Finally();
        recording.Finally();
        recording.Finally();
        recording.Leave(0);
        ExpectTree(
            "  Kite.Managed.Tests.Shop.Open()",
            "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) ! System.ArgumentException: no tea",
            "      Kite.Managed.Tests.Shop.Find(wanted: null, day: Monday) ! System.ArgumentException: no tea");
    }

    [Fact]
    public void WhatAFinallyBlockCallsIsUnderItsMethod()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        Fail(exception, 2);
        recording.Enter(2, null, DayOfWeek.Monday);
        Return(2);
        recording.Finally();
        recording.Enter(1, "cake", 3);
        recording.Throw(another);
        recording.Finally();
        recording.Enter(2, null, DayOfWeek.Friday);
        Return(2);
        ExpectTree(
            "  Kite.Managed.Tests.Shop.Open() ! System.ArgumentException: no tea",
            "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) ! System.ArgumentException: no tea",
            "      Kite.Managed.Tests.Shop.Find(wanted: null, day: Monday) = null",
            "    Kite.Managed.Tests.Shop.Count(kind: \"cake\", more: 3) ! System.InvalidOperationException: no cake",
            "  Kite.Managed.Tests.Shop.Find(wanted: null, day: Friday) = null");
    }

    // A filter runs before any call has ended.
    [Fact]
    public void WhatAFilterCallsIsUnderTheInnermostCall()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        Fail(exception, 1);
        recording.Enter(2, null, DayOfWeek.Monday);
        Return(2);
        recording.Enter(2, null, DayOfWeek.Friday);
        recording.Throw(another);
        recording.Enter(2, null, DayOfWeek.Sunday);
        recording.Throw(exception);
        Fail(exception, 1);
        recording.Finally();
        recording.Finally();
        ExpectTree(
            "  Kite.Managed.Tests.Shop.Open() ! System.ArgumentException: no tea",
            "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) ! System.ArgumentException: no tea",
            "      Kite.Managed.Tests.Shop.Find(wanted: null, day: Monday) = null",
            "      Kite.Managed.Tests.Shop.Find(wanted: null, day: Friday) ! System.InvalidOperationException: no cake",
            "      Kite.Managed.Tests.Shop.Find(wanted: null, day: Sunday) ! System.ArgumentException: no tea");
    }

    [Fact]
    public void AnExceptionOfAFinallyBlockTakesTheOthersPlace()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        recording.Enter(2, null, DayOfWeek.Monday);
        Fail(exception, 3);
        recording.Finally();
        Fail(another, 2);
        recording.Finally();
        recording.Finally();
        ExpectTree(
            "  Kite.Managed.Tests.Shop.Open() ! System.InvalidOperationException: no cake",
            "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) ! System.InvalidOperationException: no cake",
            "      Kite.Managed.Tests.Shop.Find(wanted: null, day: Monday) ! System.ArgumentException: no tea");
    }

    [Fact]
    public void AnExceptionMayBeThrownAgainByWhoCaughtIt()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        recording.Throw(exception);
        recording.Enter(2, null, DayOfWeek.Monday);
        Return(2);
        recording.Throw(exception);
        ExpectTree(
            "  Kite.Managed.Tests.Shop.Open() ! System.ArgumentException: no tea",
            "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) ! System.ArgumentException: no tea",
            "    Kite.Managed.Tests.Shop.Find(wanted: null, day: Monday) = null");
    }

    [Fact]
    public void OneObjectMayBeThrownByManyCalls()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        recording.Throw(exception);
        recording.Enter(1, "cake", 3);
        recording.Enter(2, null, DayOfWeek.Monday);
        Fail(exception, 2);
        recording.Finally();
        recording.Finally();
        Return(0);
        ExpectTree(
            "  Kite.Managed.Tests.Shop.Open()",
            "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) ! System.ArgumentException: no tea",
            "    Kite.Managed.Tests.Shop.Count(kind: \"cake\", more: 3) ! System.ArgumentException: no tea",
            "      Kite.Managed.Tests.Shop.Find(wanted: null, day: Monday) ! System.ArgumentException: no tea");
    }

    // Of the two exceptions the first one is lost, and the method catches the second one.
    [Fact]
    public void ACallThatReturnsAfterAllHasItsResult()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        Fail(exception, 1);
        recording.Finally();
        recording.Leave(1, 2);
        recording.Enter(1, "cake", 3);
        Fail(exception, 2);
        recording.Enter(2, null, DayOfWeek.Monday);
        recording.Throw(another);
        Return(1, 3);
        Return(0);
        ExpectTree(
            "  Kite.Managed.Tests.Shop.Open()",
            "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) = 2",
            "    Kite.Managed.Tests.Shop.Count(kind: \"cake\", more: 3) = 3",
            "      Kite.Managed.Tests.Shop.Find(wanted: null, day: Monday) ! System.InvalidOperationException: no cake");
    }

    [Fact]
    public void OnlyTheEndDirectlyBehindIsThatOfTheSameCall()
    {
        recording.Enter(1, "tea", 1);
        recording.Enter(1, "tea", 2);
        recording.Enter(1, "tea", 3);
        recording.Throw(exception);
        Return(1, 2);
        recording.Enter(1, "tea", 4);
        recording.Throw(exception);
        recording.Enter(0);
        recording.Leave(0);
        recording.Leave(1, 1);
        ExpectTree(
            "  Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 1) = 1",
            "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) = 2",
            "      Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 3) ! System.ArgumentException: no tea",
            "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 4) ! System.ArgumentException: no tea",
            "    Kite.Managed.Tests.Shop.Open()");
    }

    [Fact]
    public void TheEndOfAnotherMethodIsNotThatOfTheCall()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        recording.Throw(exception);
        recording.Leave(0);
        ExpectTree(
            "  Kite.Managed.Tests.Shop.Open()",
            "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) ! System.ArgumentException: no tea");
    }

    [Fact]
    public void AnExceptionThatNothingHandlesIsShownAtCallsThatNeverEnd()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        Fail(exception, 2);
        Assert.False(recording.Recorder.Fail(exception));
        ExpectTree(
            "  Kite.Managed.Tests.Shop.Open() ! System.ArgumentException: no tea",
            "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) ! System.ArgumentException: no tea");
    }

    // What is no exception object is not told of.
    [Fact]
    public void ACallWithoutAnExceptionIsNotEndedByItsFinallyBlock()
    {
        recording.Enter(0);
        recording.Finally();
        ExpectTree("  Kite.Managed.Tests.Shop.Open() ...");
        recording.Leave(0);
        recording.Finally();
        ExpectTree("  Kite.Managed.Tests.Shop.Open()");
    }

    [Fact]
    public void AnExceptionWithoutAnObjectIsUnknown()
    {
        recording.Enter(0);
        recording.Enter(1, "tea", 2);
        Assert.True(recording.Recorder.Fail(null));
        Assert.True(recording.Recorder.Fail(null));
        Assert.False(recording.Recorder.Fail(null));
        recording.Finally();
        recording.Finally();
        ExpectTree(
            "  Kite.Managed.Tests.Shop.Open() ! unknown",
            "    Kite.Managed.Tests.Shop.Count(kind: \"tea\", more: 2) ! unknown");
    }

    [Fact]
    public void ATimeSpansWhatFinallyBlocksDo()
    {
        recording.Enter(0);
        Fail(exception, 1);
        var call = recording.Calls.Threads().Single().Root.FirstChild!;
        var untilNoted = call.Elapsed!.Value;
        Thread.Sleep(50);
        recording.Finally();
        Assert.InRange(call.Elapsed!.Value, untilNoted + (Stopwatch.Frequency * 45 / 1000), long.MaxValue);
    }

    // With a filter at each call, which makes one that throws the same object.
    [Fact]
    public void AnExceptionPassesManyCallsInLinearTime()
    {
        const int Depth = 200_000;
        for (var depth = 0; depth < Depth; depth++)
        {
            recording.Enter(0);
        }
        var took = ProcessorTime.Of(() =>
        {
            for (var depth = 0; depth < Depth; depth++)
            {
                Fail(exception, 1);
                recording.Enter(2, null, DayOfWeek.Monday);
                recording.Throw(exception);
            }
            Assert.False(recording.Recorder.Fail(exception));
            for (var depth = 0; depth < Depth; depth++)
            {
                recording.Finally();
            }
        });
        Assert.InRange(took.TotalSeconds, 0, 5);
        Assert.False(recording.Recorder.Fail(another));
        Assert.Equal(100_000, recording.Tree().Count(line => line.EndsWith("Open() ! System.ArgumentException: no tea")));
    }

    // More calls than are kept open.
    [Fact]
    public void AnExceptionIsToldFromAnotherBeyondEveryLimit()
    {
        var thread = new ThreadCalls();
        for (uint index = 0; index < 1_048_576; index++)
        {
            thread.Open(index, null);
        }
        Assert.NotNull(thread.Note(exception));
        Assert.NotNull(thread.Note(exception));
        thread.Open(1_048_576, null);
        for (var call = 0; call < 524_287; call++)
        {
            Assert.NotNull(thread.Note(exception));
        }
        Assert.Null(thread.Note(exception));
    }

    private void Fail(Exception thrown, int times)
    {
        for (var time = 0; time < times; time++)
        {
            Assert.True(recording.Recorder.Fail(thrown));
        }
    }

    private void Return(uint index, object? result = null)
    {
        recording.Finally();
        recording.Leave(index, result);
    }

    private void ExpectTree(params string[] calls) =>
        Assert.Equal(["thread 1", .. calls, $"{calls.Length} calls, 1 threads, 0 dropped"], recording.Tree());
}
