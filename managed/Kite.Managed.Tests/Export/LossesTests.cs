// What is said of spans that were lost. The sum of all of them is in the tests of the sinks.
using Corvane.Instrumentation.Export;
using Xunit;

namespace Kite.Managed.Tests.Export;

public class LossesTests
{
    private readonly Losses losses = new("not sent to x");

    [Fact]
    public void TheEndSaysWhatWasNotSaidWhenItHappened()
    {
        Assert.Null(losses.AtEnd());
        losses.Add(2, "it refuses.");
        Assert.Equal(2, losses.Spans);
        Assert.Null(losses.AtEnd());
        losses.Add(3, "it hangs.");
        Assert.Equal("5 not sent to x (it hangs)", losses.AtEnd());
    }

    // The process ends while another thread is about to.
    [Fact]
    public void WhatIsAboutToBeSaidIsNotSaidYet()
    {
        Assert.True(losses.Count(2, "it refuses"));
        Assert.Equal("2 not sent to x (it refuses)", losses.AtEnd());
        losses.Say(2, "it refuses");
        Assert.Null(losses.AtEnd());
        Assert.False(losses.Count(3, "it hangs"));
    }

    // How many is not known of a file that cannot be begun.
    [Fact]
    public void ALossWithoutANumberIsNotTheFirst()
    {
        losses.Add(0, "it is read-only");
        Assert.Null(losses.AtEnd());
        Assert.True(losses.Count(4, "it is read-only"));
        losses.Say(4, "it is read-only");
        Assert.Null(losses.AtEnd());
    }
}
