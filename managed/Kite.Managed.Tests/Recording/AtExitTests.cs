using System;
using System.Threading;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class AtExitTests
{
    private static UnhandledExceptionEventArgs Unhandled(bool isTerminating) => new(new Exception(), isTerminating);

    [Fact]
    public void ItRunsOnceHoweverManyEndsThereAre()
    {
        var runs = 0;
        using var exit = AtExit.Run(() => runs++);
        exit.OnEnd(null, Unhandled(isTerminating: true));
        exit.OnEnd(null, EventArgs.Empty);
        Assert.Equal(1, runs);
    }

    [Theory]
    [InlineData(0, 8, 1)]
    [InlineData(0, 10, 1)]
    [InlineData(1, 10, 1)]
    [InlineData(2, 9, 0)]
    [InlineData(2, 10, 1)]
    [InlineData(5, 10, 0)]
    [InlineData(6, 9, 0)]
    [InlineData(6, 10, 1)]
    public void WhatTheConsoleTellsIsAnEndWhereTheRuntimeMakesNone(uint happened, int runtime, int expected)
    {
        var runs = 0;
        using var exit = AtExit.Run(() => runs++);
        Assert.False(exit.OnConsole(happened, runtime));
        Assert.False(exit.OnConsole(happened, runtime));
        Assert.Equal(expected, runs);
    }

    // It would cut the first one short.
    [Fact]
    public void AnotherEndWaitsForTheFirst()
    {
        using var begun = new ManualResetEventSlim();
        using var mayEnd = new ManualResetEventSlim();
        using var exit = AtExit.Run(() =>
        {
            begun.Set();
            mayEnd.Wait();
        });
        var first = new Thread(() => exit.OnConsole(0, 10));
        var second = new Thread(() => exit.OnEnd(null, EventArgs.Empty));
        first.Start();
        begun.Wait();
        second.Start();
        Assert.False(second.Join(200));
        mayEnd.Set();
        Assert.True(second.Join(30_000));
        Assert.True(first.Join(30_000));
    }

    // A callback may end the process while its end is being recorded.
    [Fact]
    public void AnEndWithinTheEndDoesNotWait()
    {
        AtExit? exit = null;
        var runs = 0;
        using (exit = AtExit.Run(() =>
        {
            runs++;
            exit!.OnEnd(null, EventArgs.Empty);
        }))
        {
            exit.OnEnd(null, EventArgs.Empty);
        }
        Assert.Equal(1, runs);
    }

    [Fact]
    public void AnExceptionThatEndsNothingIsNoEnd()
    {
        var runs = 0;
        using var exit = AtExit.Run(() => runs++);
        exit.OnEnd(null, Unhandled(isTerminating: false));
        Assert.Equal(0, runs);
        exit.OnEnd(null, EventArgs.Empty);
        Assert.Equal(1, runs);
    }
}
