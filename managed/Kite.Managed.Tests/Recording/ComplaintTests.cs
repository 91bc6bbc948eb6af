using System;
using System.IO;
using Corvane.Instrumentation.Recording;
using Xunit;

namespace Kite.Managed.Tests.Recording;

public class ComplaintTests
{
    public static TheoryData<Exception> Lacks => new()
    {
        new TypeLoadException("it"),
        new MissingMethodException("it"),
        new MissingFieldException("it"),
        new FileNotFoundException("it", "netstandard, Version=2.0.0.0, Culture=neutral"),
    };

    [Theory]
    [MemberData(nameof(Lacks))]
    public void WhatIsTrimmedAwayIsSaidToBe(Exception why)
    {
        Assert.Equal("kite.managed: nothing, because the program was trimmed: it", Complaint.Line("nothing", why));
        Assert.StartsWith("kite.managed: nothing, because the program was trimmed: ",
            Complaint.Line("nothing", new TypeInitializationException("Type", why)));
    }

    public static TheoryData<Exception> Others => new()
    {
        new FileNotFoundException("it"),
        new FileNotFoundException("it", "tree.txt"),
        new DllNotFoundException("it"),
        new EntryPointNotFoundException("it"),
        new InvalidOperationException("it"),
    };

    [Theory]
    [MemberData(nameof(Others))]
    public void WhatIsMissingOtherwiseIsNot(Exception why) =>
        Assert.Equal("kite.managed: nothing: it", Complaint.Line("nothing", why));

    [Fact]
    public void ItIsOneLine() =>
        Assert.Equal("kite.managed: nothing: a  b", Complaint.Line("nothing", new Exception("a\r\n\nb")));
}
