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
