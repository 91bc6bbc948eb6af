using System;
using Corvane.Sampling.Platform;
using Xunit;

namespace Kite.Managed.Tests.Sampling.Platform;

public class ThreadNamesTests
{
    [Fact]
    public void ANameIsAskedForEachTime()
    {
        var asked = 0;
        var names = new ThreadNames(thread => $"{thread} {++asked}");
        Assert.Equal("7 1", names.Of(7));
        Assert.Equal("8 2", names.Of(8));
    }

    [Fact]
    public void ASystemWithoutNamesIsAskedOnce()
    {
        var asked = 0;
        var names = new ThreadNames(_ =>
        {
            asked++;
            throw new EntryPointNotFoundException();
        });
        Assert.Null(names.Of(7));
        Assert.Null(names.Of(8));
        Assert.Equal(1, asked);
    }
}
