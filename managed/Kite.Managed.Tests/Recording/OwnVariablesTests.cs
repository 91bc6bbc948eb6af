// What a launcher set for one process is taken back.
using System.Collections.Generic;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class OwnVariablesTests
{
    private static List<(string Name, string? Value)> TakenBack(string text)
    {
        var set = new List<(string, string?)>();
        OwnVariables.TakeBack(text, (name, value) => set.Add((name, value)));
        return set;
    }

    [Fact]
    public void EachLineIsAVariable()
    {
        Assert.Equal(
            [("CORVANE_SUMMARY", null), ("DOTNET_STARTUP_HOOKS", "C:\\a=b.dll;c"), ("EMPTY", ""), ("CORVANE_RESTORE", null)],
            TakenBack("CORVANE_SUMMARY\nDOTNET_STARTUP_HOOKS=C:\\a=b.dll;c\nEMPTY=\n"));
    }

    [Theory]
    [InlineData("\n\n")]
    [InlineData("=C:=nothing")]
    public void WhatIsNoVariableIsPassedOver(string text) => Assert.Equal([("CORVANE_RESTORE", null)], TakenBack(text));
}
