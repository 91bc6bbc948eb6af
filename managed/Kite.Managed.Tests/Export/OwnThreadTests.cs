using System;
using System.Threading;
using Corvane.Instrumentation.Export;
using Corvane.Instrumentation.Privacy;
using Corvane.Instrumentation.Recording;
using Corvane.Instrumentation.Spans;
using Xunit;

namespace Kite.Managed.Tests.Export;

public class OwnThreadTests
{
    [Fact]
    public void NothingThatRunsOnItIsRecorded()
    {
        var recorder = new Recorder(new MethodTable(), new CallRecorder(new MethodTable(), RecordedValues.All), null);
        using var done = new ManualResetEventSlim();
        (bool IsIdle, bool IsOwn, bool IsBackground) seen = default;
        OwnThread.Start(
            "mine", () =>
            {
                seen = (recorder.IsIdle, OwnWork.IsCurrent, Thread.CurrentThread.IsBackground);
                done.Set();
            },
            _ => { });
        done.Wait();
        Assert.False(recorder.IsIdle);
        Assert.Equal((true, true, true), seen);
    }

    [Fact]
    public void NothingOfTheProgramFlowsIntoIt()
    {
        var local = new AsyncLocal<string> { Value = "the program's" };
        using var done = new ManualResetEventSlim();
        string? seen = "";
        OwnThread.Start(
            "mine", () =>
            {
                seen = local.Value;
                done.Set();
            },
            _ => { });
        done.Wait();
        Assert.Null(seen);
        Assert.False(ExecutionContext.IsFlowSuppressed());
    }

    [Fact]
    public void WhatFailsOnItEndsNothing()
    {
        using var done = new ManualResetEventSlim();
        Exception? seen = null;
        OwnThread.Start(
            "mine", () => throw new InvalidOperationException(), exception =>
            {
                seen = exception;
                done.Set();
            });
        done.Wait();
        Assert.IsType<InvalidOperationException>(seen);
    }
}
