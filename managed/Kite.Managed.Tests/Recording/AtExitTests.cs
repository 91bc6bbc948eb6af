using System;
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
